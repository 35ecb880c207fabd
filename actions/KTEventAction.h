// The base of what an event does, and the one table from an element's tag to its kind.
#pragma once

#include <memory>

#include "host/KTObject.h"
#include "host/KTString.h"
#include "host/XmlDocument.h"

/// An action of an event: run by the server, or only described to the clients that poll for actions. Each kind implements
/// the one that means something for it.
///
/// Threads: Execute runs on the scan thread at activation, while active and at deactivation, and on the thread of the
///          acknowledging request at acknowledgement, always under the event's mutex.
/// Memory:  owned by its event; the parent is the event and outlives it.
class KTEventAction
{
public:
    /// The moments; a list of actions has the number section * phases + phase.
    static constexpr int phaseActivate = 0;
    static constexpr int phaseWhile = 1;
    static constexpr int phaseDeactivate = 2;
    static constexpr int phaseAcknowledge = 3;
    static constexpr int phases = 4;

    static constexpr int sectionActions = 0;        // run here
    static constexpr int sectionClientActions = 1;  // announced to clients
    static constexpr int sections = 2;

    /// Gives the action a fresh GUID, which LoadXml replaces when the document has one.
    explicit KTEventAction(CObject* event);
    KTEventAction(const KTEventAction&) = default;
    KTEventAction& operator=(const KTEventAction&) = default;

    virtual ~KTEventAction() = default;
    virtual bool Execute(int phase) = 0;
    virtual bool LoadXml(const XmlDocument::XmlNode* node);
    /// Appends this action's part of a client's document; false when it has nothing to tell a client.
    virtual bool ProcessHttpServiceEventsActions(KTNarrowString& fragment);

    [[nodiscard]] CObject* Parent() const { return parent; }

    /// The kind for an element's tag, not loaded yet; null for a tag that names none.
    static std::unique_ptr<KTEventAction> Create(const wchar_t* tag, CObject* event);

protected:
    KTNarrowString id;  // text of a GUID

private:
    CObject* parent;  // not owned: the event
};
