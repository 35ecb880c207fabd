// The action that sends a mail.
#pragma once

#include <vector>

#include "actions/KTEventAction.h"

class KTEventActionMailQueue;

/// Composes a mail when its event reaches a phase, with the values of that moment, and leaves the sending to the queue that
/// all mail actions of the process share. Has nothing to tell a client.
///
/// Errors:  Execute has none; what becomes of a mail is the queue's affair.
/// Threads: as KTEventAction. Actions are made and destroyed by one thread, while none executes.
/// Memory:  the first one makes the queue, and the last one takes it along with the mails that still wait.
class KTEventActionMail : public KTEventAction
{
public:
    explicit KTEventActionMail(CObject* event);
    KTEventActionMail(const KTEventActionMail&) = delete;
    KTEventActionMail& operator=(const KTEventActionMail&) = delete;
    ~KTEventActionMail() override;

    bool Execute(int phase) override;
    /// False for another tag, and when no address is left. Nothing checks the form of an address.
    bool LoadXml(const XmlDocument::XmlNode* node) override;
    bool ProcessHttpServiceEventsActions(KTNarrowString& fragment) override;

protected:
    static int mailQueueUsers;                 // living actions
    static KTEventActionMailQueue* mailQueue;  // owned by them all; null while there are none

    std::vector<KTNarrowString> addresses;  // UTF-8, in document order
    KTWideString message;                   // template of the text
};
