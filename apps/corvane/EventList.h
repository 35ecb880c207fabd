// The configured events as the list that clients read.
#pragma once

#include <string>

namespace corvane
{
/// A JSON array of the registry's events in its order: id, name, description, groups, notify, record, timeTable (its name,
/// or null). Groups that are gone are left out.
std::string EventListJson();
}  // namespace corvane
