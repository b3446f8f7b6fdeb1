// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

/** What a run did, each in a line, in order: the calls of the platform, the lines of the log, those of the output. */
extern std::string recorded;

/** What a run is to do, in the same form; behind " = " stands what the platform answers to a call: README.md tells. */
extern std::string told;

/** Runs the tool in this process; returns its exit status. `separator` parts the words of `line`, its name first. */
int runTool(std::string line, char separator);
