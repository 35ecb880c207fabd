#include "actions/KTEventActionMailQueue.h"

#include <memory>

#include "actions/KTSmtp.h"
#include "host/KTClock.h"
#include "host/KTCorvaneSetup.h"

KTEventActionMailQueue::~KTEventActionMailQueue()
{
    // In one step: the worker may be ending by itself at this moment, and its word is then the last one.
    int seen = running;
    if (state.compare_exchange_strong(seen, stopping))
        while (state != stopped) Sleep(0);
    worker.Join();
    for (const KTEventMailEntry* entry : entries) delete entry;
}

bool KTEventActionMailQueue::Add(const std::vector<KTNarrowString>& addresses, const char* subject, const char* text)
{
    // The copies are made before the mutex is taken: an entry outlives its action and the documents that made it.
    auto entry = std::make_unique<KTEventMailEntry>();
    entry->addresses = addresses;
    entry->subject = subject;
    entry->text = text;

    const KTLockGuard guard(mutex);
    if (!guard.Locked()) return true;
    entries.push_back(entry.get());
    (void)entry.release();  // the list owns it from here on
    if (entries.size() > mostEntries) DropOldest();
    if (state != running) NeedWorker();
    return true;
}

void KTEventActionMailQueue::DropOldest()
{
    const bool next = cursor == entries.begin();
    delete entries.front();
    entries.pop_front();
    if (next) cursor = entries.begin();
}

void KTEventActionMailQueue::NeedWorker()
{
    state = starting;
    // Without a thread the state stays as it is, and the next Add tries again.
    if (!worker.Start([](void* queue) { static_cast<KTEventActionMailQueue*>(queue)->Work(); }, this)) return;
    // The worker's first step needs no mutex, so that waiting for it here, with the mutex held, can't hang.
    while (state == starting) Sleep(0);
}

void KTEventActionMailQueue::Work()
{
    state = running;
    RestartTurns();
    // Read once a run: a change of the settings reaches the next one.
    const KTCorvaneSetup& setup = KTCorvaneSetup::Get();
    auto smtp = std::make_unique<KTSmtp>(setup.SmtpServer().Str(), KTSmtp::usualPort, 0);
    smtp->SetFrom(setup.SmtpFrom().Str());
    if (setup.SmtpAuthenticated()) smtp->SetUserPassword(setup.SmtpUser().Str(), setup.SmtpPassword().Str());
    while (state != stopping)
    {
        if (!SendNext(smtp)) return;
        Sleep(pauseBetweenMails);
    }
    state = stopped;
}

void KTEventActionMailQueue::RestartTurns()
{
    const KTLockGuard guard(mutex);
    cursor = entries.begin();
}

bool KTEventActionMailQueue::SendNext(std::unique_ptr<KTSmtp>& smtp)
{
    const KTLockGuard guard(mutex);
    if (entries.empty())
    {
        // With the mutex held: whoever adds a mail either was seen here, or finds no worker and starts one.
        state = stopped;
        smtp.reset();
        return false;
    }
    if (cursor == entries.end()) cursor = entries.begin();
    const KTEventMailEntry* const entry = *cursor;
    smtp->ResetTo();
    for (const KTNarrowString& address : entry->addresses) smtp->AddTo(address.Str());
    if (!smtp->Send(entry->subject.Str(), entry->text.Str()))
    {
        ++cursor;
        return true;
    }
    delete entry;
    cursor = entries.erase(cursor);
    return true;
}
