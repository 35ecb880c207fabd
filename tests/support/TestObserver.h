// An observer that is installed while it lives and hands on what it is told.
#pragma once

#include <functional>
#include <utility>

#include "engine/KTEventObserver.h"

class TestObserver : public KTEventObserver
{
public:
    using OnStatus = std::function<void(const KTEventDriver&, const KTEventDriver::tagSEventRT&, int status)>;

    explicit TestObserver(OnStatus function) : onStatus(std::move(function)), before(Install(this)) {}
    ~TestObserver() override { Install(before); }

    void StatusChanged(const KTEventDriver& event, const KTEventDriver::tagSEventRT& occurrence, int status) override
    {
        onStatus(event, occurrence, status);
    }

private:
    OnStatus onStatus;
    KTEventObserver* const before;
};
