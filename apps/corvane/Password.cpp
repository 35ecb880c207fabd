// corvane password: reads a password and prints the hash that the settings take.
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <istream>
#include <optional>
#include <ostream>
#include <string>

#include "apps/corvane/Commands.h"
#include "suite/support/KTPassword.h"

namespace
{
constexpr std::size_t longest = 1024;  // bytes; what a client may send when it signs in

constexpr int endingSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

termios shown;  // the terminal as it was; the handler can reach it nowhere else

extern "C" void ShowAgainAndEnd(int signal)
{
    (void)tcsetattr(STDIN_FILENO, TCSANOW, &shown);
    (void)std::signal(signal, SIG_DFL);
    (void)raise(signal);
}

// While it lives, the terminal doesn't show what is typed; a signal that ends the program shows it again first.
class HiddenInput
{
public:
    HiddenInput() : active(tcgetattr(STDIN_FILENO, &shown) == 0)
    {
        if (!active) return;
        for (std::size_t i = 0; i < std::size(endingSignals); ++i)
        {
            before[i] = std::signal(endingSignals[i], ShowAgainAndEnd);
            if (before[i] == SIG_IGN) (void)std::signal(endingSignals[i], SIG_IGN);
        }
        termios hidden = shown;
        hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        hidden.c_lflag |= ECHONL;  // the line end still shows that the key was taken
        (void)tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
    }
    HiddenInput(const HiddenInput&) = delete;
    HiddenInput& operator=(const HiddenInput&) = delete;
    ~HiddenInput()
    {
        if (!active) return;
        (void)tcsetattr(STDIN_FILENO, TCSAFLUSH, &shown);
        for (std::size_t i = 0; i < std::size(endingSignals); ++i) (void)std::signal(endingSignals[i], before[i]);
    }

private:
    bool active;
    void (*before[std::size(endingSignals)])(int){};
};

std::optional<std::string> ReadLine(std::istream& in)
{
    std::string line;
    if (!std::getline(in, line)) return std::nullopt;
    if (line.ends_with('\r')) line.pop_back();  // a file from Windows; nobody types one
    return line;
}

// The password, or nothing after a message.
std::optional<std::string> Ask(std::istream& in, bool terminal, std::ostream& err)
{
    if (terminal) err << "Password: " << std::flush;
    std::optional<std::string> first = ReadLine(in);
    if (!first || first->empty())
    {
        err << "corvane password: the password is empty\n";
        return std::nullopt;
    }
    if (first->size() > longest)
    {
        err << "corvane password: the password is longer than " << longest << " bytes\n";
        return std::nullopt;
    }
    if (!terminal) return first;
    err << "Again: " << std::flush;
    if (ReadLine(in) == first) return first;
    err << "corvane password: the two are not the same\n";
    return std::nullopt;
}
}  // namespace

namespace corvane
{
int Password(std::istream& in, bool terminal, std::ostream& out, std::ostream& err)
{
    std::optional<HiddenInput> hidden;
    if (terminal) hidden.emplace();
    const std::optional<std::string> password = Ask(in, terminal, err);
    hidden.reset();
    if (!password) return wrongUsage;
    std::string hash;
    if (!KTPassword::Make(*password, hash))
    {
        err << "corvane password: the system gives no random numbers or no memory\n";
        return workFailed;
    }
    out << hash << '\n' << std::flush;
    return done;
}
}  // namespace corvane
