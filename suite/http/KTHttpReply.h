// A reply that is collected in memory and sent when its service has returned.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "host/KTHttp.h"
#include "suite/http/KTHttpBudget.h"

/// Collects what a service writes, so that a slow client holds no lock of the module.
///
/// The module doesn't look at the result of a write and goes on to its end. A reply that grows too large therefore forgets
/// its text and takes no more, Finish is false, and the server answers with an error in its place.
///
/// Units:   bytes. The text lies in pieces of pieceSize, so that a large reply is never copied to grow. The first piece is
///          free; each further one is taken from the budget, and ordinary replies never meet a budget that large ones
///          have used up.
/// Errors:  Start and Write give -1 for what they refuse.
/// Threads: one at a time, as KTHttpResponse.
/// Memory:  the budget, which may be null for none, must outlive the reply.
class KTHttpReply final : public KTHttpResponse
{
public:
    static constexpr std::size_t pieceSize = 64 * 1024;
    static constexpr std::size_t sizeLimit = std::size_t{256} * 1024 * 1024;

    /// `account` is the client's address: who pays for the pieces.
    KTHttpReply(KTHttpBudget* memory, std::string account, std::size_t limit = sizeLimit);
    ~KTHttpReply() override { Forget(); }

    /// 0, or -1 for a reply that has begun. The modes differ in nothing here: what they choose between is how a server sends
    /// while a service still writes.
    int Start(int newStatus, int mode) override;

    /// The number of bytes taken, or -1.
    int Write(const KTNarrowString& text) override;
    int Write(const char* text, int length) override;
    int Flush() override { return 0; }

    /// True once, for a reply that has begun and holds all that was written.
    bool Finish() override;

    /// False, as -1 of Write, without a limit on the length.
    bool Append(std::string_view text);

    /// Back to a reply that hasn't begun.
    void Reset();

    [[nodiscard]] int Status() const { return status; }  // 0 before Start
    [[nodiscard]] bool Finished() const { return finished; }
    [[nodiscard]] bool TooLarge() const { return lost == Lost::size; }
    [[nodiscard]] bool NoRoom() const { return lost == Lost::room; }
    [[nodiscard]] std::size_t Size() const { return size; }

    /// Copies at most `count` bytes from `position` on. Returns their number, 0 at the end.
    std::size_t Copy(std::size_t position, char* out, std::size_t count) const;

private:
    enum class Lost
    {
        nothing,
        size,  // more than the limit
        room   // no budget
    };

    [[nodiscard]] bool MakeRoom();
    void Forget();

    KTHttpBudget* const budget;  // not owned
    const std::string owner;
    const std::size_t largest;
    std::vector<std::string> pieces;  // all full but the last
    std::size_t size = 0;
    int status = 0;
    bool finished = false;
    Lost lost = Lost::nothing;
};
