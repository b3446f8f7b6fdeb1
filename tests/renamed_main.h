// Lets the tool's own `main` live in a test program; to itself it is still called `main`.
int main(int argc, char** argv) asm("zelmar_frontend_main");
