// What of the configuration was left out when it was loaded, told in the server's log.
#pragma once

#include <string>

#include "engine/KTEventDriver.h"
#include "engine/KTEventServer.h"
#include "suite/support/KTSettings.h"

namespace corvane
{
/// Tells documents that can't be read, events that didn't load, and parts of events that were dropped, each with its reason:
/// the loader drops them without a word, and an event that nobody misses is one that nobody hears of. Tells also of an old
/// event log that still waits for its conversion.
///
/// Call it between LoadCfg and Start.
void ReportLoading(KTEventServer& server, const KTSettings& settings);

/// Why the events that LoadCfg has loaded can't be all there are: a document that holds events can't be read. Empty when all
/// is well.
std::string UnreadableEvents(KTEventServer& server, const KTSettings& settings);

/// The event for messages: "event "NAME"", by its id where it has no name. Always one line.
std::string EventTitle(const XmlDocument::XmlNode& event);
std::string EventTitle(const KTEventDriver& event);
}  // namespace corvane
