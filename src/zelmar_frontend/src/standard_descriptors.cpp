// SPDX-License-Identifier: Apache-2.0

#include "standard_descriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include "zelmar_frontend_constants.h"

namespace ZelmarFrontend {

void fillStandardDescriptors()
{
    int descriptor;
    do {
        descriptor = open("/", O_PATH | O_CLOEXEC);  // a write to it fails, as one to a closed descriptor does
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    close(descriptor);
}

}  // namespace ZelmarFrontend
