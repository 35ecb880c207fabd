// Where the running program lies.
#pragma once

#include <string>

/// The directory of the program's file, without separator at its end; "." when the system doesn't tell.
std::string ExecutableDirectory();
