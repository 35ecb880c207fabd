#include "engine/KTEventDriverParking.h"

#include "host/KTDriver.h"
#include "host/KTText.h"

bool KTEventDriverParking::IsErrorEvent() const { return node->Tag() == L"eventError"; }
bool KTEventDriverParking::IsTimeEvent() const { return node->Tag() == L"eventTime"; }

bool KTEventDriverParking::LoadXml(const XmlDocument::XmlNode* element)
{
    node = element;
    id = wtoguid(node->Value(L"id", L"").Str());
    if (id == nullGuid) return false;
    delayToActivate = static_cast<std::uint32_t>(_wtoi(node->Value(L"delayToActivate", L"").Str())) * 1000U;
    alarmTime = _wtoi(node->Value(L"time", L"").Str());
    notify = node->Value(L"notify", L"") == L"T";
    record = node->Value(L"record", L"") == L"T";
    name = node->Value(L"name", L"");
    description = node->Value(L"description", L"");
    CollectDevices();
    // The sensors themselves watch the limit; an error event leaves them alone.
    if (IsTimeEvent())
        for (KTDriver* sensor : sensors)
            if (auto* const bay = dynamic_cast<KTDriverDeviceQV*>(sensor)) bay->SetAlarmTime(alarmTime);
    return true;
}

void KTEventDriverParking::CollectDevices()
{
    for (auto place = KTDriver::DriversBegin(); place != KTDriver::DriversEnd(); ++place)
    {
        KTDriver* const driver = *place;
        const KTWideString& type = driver->DeviceType();
        if (type == L"QV")
        {
            int busyTime = -1;
            sensors.push_back(driver);
            driver->VariableId(L"BUSYTIME", busyTime);
            busyVariables.push_back(busyTime);
            driver->ReleaseVariable(busyTime);
        }
        else if (type == L"QZ")
            panels.push_back(driver);
        else if (type == L"QM7RT")
            units.push_back(driver);
        else if (type == L"QLINK_GATE")
            links.push_back(driver);
    }
}

bool KTEventDriverParking::NeedCheck(const KTDateTime& /*now*/)
{
    if (IsErrorEvent()) return !(sensors.empty() && panels.empty() && units.empty() && links.empty());
    if (IsTimeEvent()) return !sensors.empty();
    return true;
}

bool KTEventDriverParking::CheckEvent()
{
    if (IsErrorEvent()) return CheckErrors();
    if (IsTimeEvent()) return CheckTimes();
    return false;
}

bool KTEventDriverParking::CheckErrors()
{
    faulty.clear();
    for (const auto* devices : {&sensors, &panels, &units, &links})
        for (KTDriver* device : *devices)
            if ((device->DeviceState() & KTDriver::stateError) != 0) faulty.push_back(device);
    return !faulty.empty();
}

bool KTEventDriverParking::CheckTimes()
{
    overdue.clear();
    // Unsigned: a negative limit is a very large one, which no sensor reaches. NaN compares false.
    const double limit = static_cast<std::uint32_t>(alarmTime);
    KTValue value;
    auto variable = busyVariables.begin();
    for (KTDriver* sensor : sensors)
    {
        sensor->ReadVariable(*variable++, value);
        if (value.number >= limit) overdue.push_back(sensor);
    }
    return !overdue.empty();
}

bool KTEventDriverParking::ParseAnnotation()
{
    constexpr int mostNames = 11;
    annotationText.Clear();
    if (IsTimeEvent()) faulty = overdue;
    int names = 0;
    for (const KTDriver* device : faulty)
    {
        if (names > 0) annotationText += L", ";
        annotationText += device->DeviceName();
        if (++names == mostNames)
        {
            annotationText += L"...";
            break;
        }
    }
    return true;
}
