// A device that speaks Modbus over TCP.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "host/KTThread.h"
#include "suite/drivers/KTBackOff.h"
#include "suite/drivers/KTDriverBase.h"
#include "suite/drivers/KTModbusConnection.h"
#include "suite/drivers/KTModbusFormat.h"
#include "suite/drivers/KTModbusPlan.h"

/// The driver "modbus-tcp": one thread connects, polls and writes.
///
/// While the device can't be reached its variables have no value, its state says so and nothing can be written to it.
/// What it refuses has no value either, but the rest goes on.
///
/// Format:  docs/devices.md, "modbus-tcp".
/// Errors:  what goes wrong is logged when it begins and when it ends, not at each attempt.
/// Threads: as KTDriverBase; a write is queued and done by the device's thread between two requests.
class KTDriverModbus final : public KTDriverBase
{
public:
    static constexpr int writeLife = 5000;          // milliseconds after which a write that waits is dropped
    static constexpr std::size_t maxWrites = 1000;  // that wait

    /// The settings are those that KTSettings has checked.
    explicit KTDriverModbus(const KTDeviceSettings& settings);
    ~KTDriverModbus() override;

    [[nodiscard]] bool Start() override;
    void RequestStop() override;
    void Join() override;

    /// After the first poll in which the device answered, be it with refusals.
    [[nodiscard]] bool Answered() const override { return answered.load(std::memory_order_acquire); }

    /// Attempts to reach the device since the start, those that succeeded included.
    [[nodiscard]] int Attempts() const { return attempts.load(std::memory_order_relaxed); }

protected:
    /// False for a value that doesn't fit the variable's format, with too many writes waiting, and while the device can't
    /// be reached: an order that is carried out late may be the wrong order.
    bool Write(int id, double value) override;

private:
    using Steady = std::chrono::steady_clock;
    using Result = KTModbusConnection::Result;

    struct tagSPoint
    {
        KTModbusPlan::Point place;
        KTModbusFormat format;
        std::string refusal;  // what was logged last, empty while it can be read
    };
    struct tagSWrite
    {
        int id = -1;
        KTModbusFormat::Registers registers{};
        Steady::time_point asked;
        int tries = 0;
    };

    void Run();
    bool Reach();
    bool Open();
    Result Poll();
    Result Probe();
    Result ReadBlock(std::size_t index);
    void PublishBlock(const KTModbusPlan::Block& block, const std::uint16_t* registers);
    void RefuseBlock(const KTModbusPlan::Block& block);
    bool IsStale(Result result) const;

    Result Serve(Steady::time_point until);
    Result DoWrites();
    Result DoWrite(tagSWrite write);
    Result ReadBack(int id);
    bool TakeWrite(tagSWrite& write);

    void TellReached();
    void TellLost();
    void Pause();
    bool Stopping();

    const std::string host;
    const int port;
    const int unit;
    const std::chrono::milliseconds pollPeriod;

    // Of the device's thread alone.
    std::vector<tagSPoint> points;  // by variable id
    std::vector<KTModbusPlan::Block> plan;
    KTModbusConnection connection;
    bool provenConnection = false;  // a whole poll has succeeded on it
    bool toldLost = false;
    KTBackOff backOff;

    std::atomic<bool> answered{false};
    std::atomic<int> attempts{0};

    std::mutex mutex;
    std::condition_variable wake;
    std::deque<tagSWrite> writes;  // guarded by mutex; oldest first
    bool stopping = false;         // guarded by mutex
    KTThread thread;
};
