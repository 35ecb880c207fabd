#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <iostream>

#include "apps/corvane/Commands.h"

namespace
{
// The next file opened would take the number of a standard stream that is closed, and get what is written to the stream.
void OpenStandardStreams()
{
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream)
        if (fcntl(stream, F_GETFD) < 0) (void)open("/dev/null", O_RDWR);
}
}  // namespace

int main(int argc, char** argv)
{
    OpenStandardStreams();
    (void)std::signal(SIGXFSZ, SIG_IGN);  // a file that may grow no further is told by the write, as a full disk is
    return corvane::Main(argc, argv,
                         {std::cin, std::cout, std::cerr, isatty(STDIN_FILENO) != 0, isatty(STDERR_FILENO) != 0});
}
