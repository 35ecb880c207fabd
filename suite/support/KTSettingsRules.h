// What the texts of the settings must look like.
#pragma once

#include "suite/support/KTSettingsReader.h"

namespace kt::rules
{
/// How the names of the events' own devices begin.
inline constexpr std::string_view eventDevicePrefix = "R$EVE_";

extern const KTTextRule anyText;
extern const KTTextRule secret;      // any text, shown in no message
extern const KTTextRule line;        // no control characters
extern const KTTextRule name;        // at least one character, no control characters
extern const KTTextRule entityName;  // of a device or a variable: also none of . [ ] @ :
extern const KTTextRule deviceName;  // also none of the names of the events' own devices
extern const KTTextRule userName;    // also no `:`, which ends the name in a request
extern const KTTextRule passwordHash;
extern const KTTextRule language;
extern const KTTextRule path;
extern const KTTextRule separator;        // one character of a date or a time
extern const KTTextRule numberSeparator;  // one character that can't be part of a number
extern const KTTextRule address;          // IP address or "localhost"
extern const KTTextRule host;             // host name, IPv4 address, or IPv6 address in brackets
extern const KTTextRule deviceHost;       // the same, and IPv6 addresses without brackets
extern const KTTextRule hostAndPort;      // empty, "host" or "host:port"
extern const KTTextRule topic;            // MQTT topic or empty
extern const KTTextRule pointer;          // JSON pointer
}  // namespace kt::rules
