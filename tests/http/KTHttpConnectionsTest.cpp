#include "suite/http/KTHttpConnections.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <thread>

using Phase = KTHttpConnections::Phase;

namespace
{
constexpr std::chrono::hours ages{1};

/// A connection in the book, with a socket that shows whether it was cut.
class Member
{
public:
    Member(KTHttpConnections& connections, const char* peer) : book(connections)
    {
        EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
        entry = book.Open(pair[0], peer, "127.0.0.1");
    }
    Member(const Member&) = delete;
    Member& operator=(const Member&) = delete;
    ~Member()
    {
        book.Close(entry);
        ::close(pair[0]);
        ::close(pair[1]);
    }

    [[nodiscard]] bool IsCut() const
    {
        pollfd state{pair[1], POLLIN, 0};
        return ::poll(&state, 1, 0) > 0;
    }
    void Enter(Phase phase, std::chrono::milliseconds allowance = ages) const
    {
        EXPECT_TRUE(book.Enter(entry, phase, allowance));
    }

    KTHttpConnections& book;
    int pair[2] = {-1, -1};
    KTHttpConnections::tagSEntry* entry = nullptr;
};

KTHttpLimits Limits()
{
    KTHttpLimits limits;
    limits.connections = 4;
    limits.connectionsOfOne = 3;
    limits.streams = 3;
    limits.streamsOfOne = 2;
    limits.head = std::chrono::milliseconds(40);
    limits.settled = std::chrono::milliseconds(20);
    return limits;
}

void Pause(int milliseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds)); }
}  // namespace

TEST(KTHttpConnections, CutsWhoIsLateAndNobodyElse)
{
    KTHttpConnections book(Limits());
    const Member head(book, "a");
    const Member body(book, "b");
    const Member working(book, "c");
    body.Enter(Phase::body);
    book.EnterWork(working.entry);
    book.CutLate();
    EXPECT_FALSE(head.IsCut());
    Pause(60);
    book.CutLate();
    EXPECT_TRUE(head.IsCut());
    EXPECT_TRUE(book.IsCut(head.entry));
    EXPECT_FALSE(body.IsCut());
    EXPECT_FALSE(working.IsCut());
    body.Enter(Phase::sending, std::chrono::milliseconds(1));
    Pause(5);
    book.CutLate();
    EXPECT_TRUE(body.IsCut());
    EXPECT_EQ(book.Size(), 3u);  // gone only when its thread has closed it
}

TEST(KTHttpConnections, MakesRoomWithTheLongestWaitingOfTheSameAddress)
{
    KTHttpConnections book(Limits());
    const Member oldest(book, "a");
    const Member working(book, "a");
    book.EnterWork(working.entry);
    const Member newest(book, "a");
    oldest.Enter(Phase::sending);
    newest.Enter(Phase::body);
    EXPECT_FALSE(book.Admit("a"));  // all too young to be cut
    EXPECT_FALSE(oldest.IsCut());
    Pause(30);
    EXPECT_TRUE(book.Admit("a"));
    EXPECT_TRUE(oldest.IsCut());
    EXPECT_FALSE(newest.IsCut());
    const Member admitted(book, "a");
    EXPECT_TRUE(book.Admit("a"));
    EXPECT_TRUE(newest.IsCut());
    EXPECT_FALSE(working.IsCut());
}

TEST(KTHttpConnections, MakesRoomWithTheGreediestWhenAllAreFull)
{
    KTHttpConnections book(Limits());
    const Member modest(book, "b");
    const Member first(book, "a");
    const Member second(book, "a");
    const Member third(book, "a");
    for (const Member* member : {&modest, &first, &second, &third}) member->Enter(Phase::body);
    Pause(30);
    EXPECT_TRUE(book.Admit("c"));
    EXPECT_TRUE(first.IsCut());
    EXPECT_FALSE(modest.IsCut());
}

TEST(KTHttpConnections, RefusesANewOneWhenAllAreAtWork)
{
    KTHttpConnections book(Limits());
    const Member first(book, "a");
    const Member second(book, "a");
    const Member third(book, "b");
    const Member fourth(book, "b");
    for (const Member* member : {&first, &second, &third, &fourth}) book.EnterWork(member->entry);
    Pause(30);
    EXPECT_FALSE(book.Admit("c"));
    for (const Member* member : {&first, &second, &third, &fourth}) EXPECT_FALSE(member->IsCut());
    fourth.Enter(Phase::head);
    Pause(30);
    EXPECT_TRUE(book.Admit("c"));
    EXPECT_TRUE(fourth.IsCut());
}

TEST(KTHttpConnections, BoundsStreamsInAllAndOfOneAddress)
{
    KTHttpConnections book(Limits());
    const Member one(book, "a");
    const Member two(book, "a");
    const Member three(book, "a");
    const Member other(book, "b");
    one.Enter(Phase::streaming);
    two.Enter(Phase::streaming);
    EXPECT_FALSE(book.Enter(three.entry, Phase::streaming, ages));
    one.Enter(Phase::streaming);  // goes on
    other.Enter(Phase::streaming);
    two.Enter(Phase::head);
    three.Enter(Phase::streaming);
    EXPECT_FALSE(book.Enter(two.entry, Phase::streaming, ages));
}

TEST(KTHttpConnections, EndsInTwoSteps)
{
    KTHttpConnections book(Limits());
    auto waiting = std::make_unique<Member>(book, "a");
    auto sending = std::make_unique<Member>(book, "b");
    auto working = std::make_unique<Member>(book, "c");
    sending->Enter(Phase::sending);
    book.EnterWork(working->entry);
    book.CutWaiting();
    EXPECT_TRUE(waiting->IsCut());
    EXPECT_FALSE(sending->IsCut());
    book.CutAll();
    EXPECT_TRUE(sending->IsCut());
    EXPECT_FALSE(working->IsCut());
    waiting.reset();
    sending.reset();
    EXPECT_FALSE(book.WaitUntilEmpty(std::chrono::milliseconds(10)));
    working.reset();
    EXPECT_TRUE(book.WaitUntilEmpty(std::chrono::milliseconds(10)));
}
