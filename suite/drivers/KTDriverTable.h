// The kinds of devices that the settings can name, one row a driver.
#pragma once

#include <span>
#include <string_view>

/// What a driver reads of its section of the settings, besides the keys that every device and every variable has
/// (device: name, driver, type, description, variable; variable: name, description, labels, writable).
///
/// Threads: constant.
struct KTDriverRow
{
    std::string_view name;  // the word of the key `driver`
    std::span<const std::string_view> deviceKeys;
    std::span<const std::string_view> variableKeys;
};

/// All drivers, in the order in which messages list them.
std::span<const KTDriverRow> KTDriverTable();

/// The row of that name; null when there is none.
const KTDriverRow* FindDriverRow(std::string_view name);
