// The two events of a parking installation that nobody composes: a device in error, a bay busy for too long.
#pragma once

#include <list>

#include "engine/KTEventDriver.h"

class KTDriver;

/// An event whose condition is written in code, over the devices of the installation. The tag of its element tells which
/// of the two it is: `eventError` or `eventTime`.
///
/// Threads: as KTEventDriver; the lists of devices are built at load and only read afterwards.
/// Memory:  holds driver pointers without a lock: a driver has to outlive the events.
class KTEventDriverParking : public KTEventDriver
{
public:
    KTEventDriverParking() = default;

    /// False without an identity. Doesn't call the base: a parking event has no more than its few values.
    bool LoadXml(const XmlDocument::XmlNode* element) override;
    bool NeedCheck(const KTDateTime& now) override;
    bool CheckEvent() override;
    using KTEventDriver::ParseAnnotation;

protected:
    /// Composes the names of the devices of the last check into the annotation text; from the eleventh on "..." stands for
    /// those behind it, even if there are none. Always true.
    bool ParseAnnotation();

private:
    void CollectDevices();
    [[nodiscard]] bool IsErrorEvent() const;
    [[nodiscard]] bool IsTimeEvent() const;
    bool CheckErrors();
    bool CheckTimes();

    int alarmTime = 0;             // seconds; the limit of the busy time
    std::list<KTDriver*> sensors;  // type "QV"
    std::list<int> busyVariables;  // parallel to sensors: the id of BUSYTIME
    std::list<KTDriver*> panels;   // type "QZ"
    std::list<KTDriver*> units;    // type "QM7RT"
    std::list<KTDriver*> links;    // type "QLINK_GATE"
    std::list<KTDriver*> faulty;   // result of the last check of eventError
    std::list<KTDriver*> overdue;  // result of the last check of eventTime
};
