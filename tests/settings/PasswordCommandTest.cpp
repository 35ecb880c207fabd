// The subcommand `corvane password`, with streams and at a real terminal.
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <iostream>
#include <sstream>
#include <string>

#include "suite/support/KTPassword.h"

namespace corvane
{
int Password(std::istream& in, bool terminal, std::ostream& out, std::ostream& err);
}

namespace
{
struct Result
{
    int code;
    std::string out;
    std::string err;
};

Result Piped(const std::string& input)
{
    std::istringstream in(input);
    std::ostringstream out;
    std::ostringstream err;
    const int code = corvane::Password(in, false, out, err);
    return {code, out.str(), err.str()};
}

// The program at a terminal of its own. What it prints comes through a pipe, what the terminal shows through the terminal.
class AtATerminal
{
public:
    AtATerminal()
    {
        EXPECT_EQ(pipe(output), 0);
        child = forkpty(&terminal, nullptr, nullptr, nullptr);
        if (child != 0) return;
        std::ostringstream out;
        const int code = corvane::Password(std::cin, true, out, std::cerr);
        const std::string text = out.str();
        (void)!write(output[1], text.data(), text.size());
        termios after{};
        tcgetattr(STDIN_FILENO, &after);
        _exit((after.c_lflag & ECHO) == 0 ? 77 : code);
    }
    AtATerminal(const AtATerminal&) = delete;
    AtATerminal& operator=(const AtATerminal&) = delete;
    ~AtATerminal()
    {
        close(terminal);
        close(output[0]);
        close(output[1]);
    }

    // Everything that the terminal shows until `text` has come.
    void WaitFor(const std::string& text)
    {
        const std::size_t from = seen.size();
        char byte = 0;
        while (seen.find(text, from) == std::string::npos && read(terminal, &byte, 1) == 1) seen += byte;
        EXPECT_NE(seen.find(text, from), std::string::npos) << seen;
    }
    void Type(const std::string& text)
    {
        EXPECT_EQ(write(terminal, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    int Status()
    {
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        return status;
    }
    std::string Output()
    {
        close(output[1]);
        output[1] = -1;
        std::string text;
        char byte = 0;
        while (read(output[0], &byte, 1) == 1) text += byte;
        return text;
    }
    bool Echoes()
    {
        termios now{};
        EXPECT_EQ(tcgetattr(terminal, &now), 0);
        return (now.c_lflag & ECHO) != 0;
    }

    std::string seen;
    pid_t child = 0;

private:
    int terminal = -1;
    int output[2] = {-1, -1};
};
}  // namespace

TEST(PasswordCommand, PrintsTheHashOfOneLineAndNothingElse)
{
    const Result result = Piped("pässword with blanks \nand more lines\n");
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.err, "");
    ASSERT_TRUE(result.out.ends_with('\n'));
    const std::string hash = result.out.substr(0, result.out.size() - 1);
    EXPECT_TRUE(KTPassword::Verify("pässword with blanks ", hash)) << hash;
}

TEST(PasswordCommand, TakesALineWithoutItsEnd)
{
    const Result open = Piped("secret");
    EXPECT_EQ(open.code, 0);
    EXPECT_TRUE(KTPassword::Verify("secret", open.out.substr(0, open.out.size() - 1)));
    const Result windows = Piped("secret\r\n");
    EXPECT_TRUE(KTPassword::Verify("secret", windows.out.substr(0, windows.out.size() - 1)));
}

TEST(PasswordCommand, RefusesAnEmptyOrAnEndlessPassword)
{
    for (const std::string& input : {std::string(), std::string("\n"), std::string("\r\n"), std::string(1025, 'x')})
    {
        const Result result = Piped(input);
        EXPECT_EQ(result.code, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_TRUE(result.err.starts_with("corvane password: the password is ")) << result.err;
    }
}

TEST(PasswordCommand, AsksTwiceAtATerminalAndShowsNothing)
{
    AtATerminal program;
    program.WaitFor("Password: ");
    program.Type("geheim\n");
    program.WaitFor("Again: ");
    program.Type("geheim\n");
    const int status = program.Status();
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    const std::string hash = program.Output();
    EXPECT_TRUE(KTPassword::Verify("geheim", hash.substr(0, hash.size() - 1))) << hash;
    EXPECT_EQ(program.seen.find("geheim"), std::string::npos) << program.seen;
}

TEST(PasswordCommand, RefusesTwoPasswordsThatDiffer)
{
    AtATerminal program;
    program.WaitFor("Password: ");
    program.Type("geheim\n");
    program.WaitFor("Again: ");
    program.Type("geheim2\n");
    program.WaitFor("corvane password: the two are not the same");
    const int status = program.Status();
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 2);
    EXPECT_EQ(program.Output(), "");
}

TEST(PasswordCommand, LetsTheTerminalShowAgainWhenItIsInterrupted)
{
    AtATerminal program;
    program.WaitFor("Password: ");
    EXPECT_FALSE(program.Echoes());
    program.Type("\x03");  // Ctrl-C
    const int status = program.Status();
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGINT);
    EXPECT_TRUE(program.Echoes());
}
