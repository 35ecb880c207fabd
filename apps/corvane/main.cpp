#include <unistd.h>

#include <iostream>

#include "apps/corvane/Commands.h"

int main(int argc, char** argv)
{
    return corvane::Main(argc, argv, {std::cin, std::cout, std::cerr, isatty(STDIN_FILENO) != 0});
}
