// The kinds of devices that the settings can name, one row a driver.
#pragma once

#include <memory>
#include <span>
#include <string_view>

#include "suite/support/KTSettings.h"

class KTDriverBase;

/// A driver: what it reads of its section of the settings, besides the keys that every device and every variable has
/// (device: name, driver, type, description, variable; variable: name, description, labels, writable), and what makes one.
///
/// Threads: constant.
struct KTDriverRow
{
    std::string_view name;  // the word of the key `driver`
    std::span<const std::string_view> deviceKeys;
    std::span<const std::string_view> variableKeys;

    /// The device of these settings, as KTSettings has checked them; it runs once it is started. Null in a program that
    /// was built without this driver.
    std::unique_ptr<KTDriverBase> (*make)(const KTDeviceSettings& device);
};

/// All drivers, in the order in which messages list them.
std::span<const KTDriverRow> KTDriverTable();

/// The row of that name; null when there is none.
const KTDriverRow* FindDriverRow(std::string_view name);
