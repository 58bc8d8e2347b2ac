// One state folder and one share for the whole test program.
#pragma once

#include <string>

// The folder that holds everything; made on first use, removed at the program's end.
const std::string& TemporaryFolder();

// Configures the process: state folder "state" and share "files" in that folder. Returns
// the name of the user who runs the tests.
std::string UseTemporaryState();
