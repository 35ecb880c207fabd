#include "suite/drivers/KTDriverModbus.h"

#include <spdlog/spdlog.h>

#include <array>
#include <span>
#include <utility>

#include "host/KTClock.h"

namespace
{
KTModbusFormat Format(const KTVariableSettings& variable, KTModbusPlan::Table table)
{
    KTModbusFormat format;
    (void)KTModbusFormat::FindKind(variable.format, format.kind);  // the settings were checked
    (void)KTModbusFormat::FindOrder(variable.wordOrder, format.order);
    format.scale = variable.scale;
    if (KTModbusPlan::HoldsBits(table)) format.kind = KTModbusFormat::Kind::boolean;
    return format;
}
}  // namespace

KTDriverModbus::KTDriverModbus(const KTDeviceSettings& settings)
    : KTDriverBase(settings),
      host(settings.host),
      port(settings.port),
      unit(settings.unit),
      pollPeriod(settings.pollMilliseconds)
{
    for (const KTVariableSettings& variable : settings.variables)
    {
        tagSPoint& point = points.emplace_back();
        point.place.id = static_cast<int>(points.size()) - 1;
        (void)KTModbusPlan::FindTable(variable.table, point.place.table);
        point.format = Format(variable, point.place.table);
        point.place.address = variable.address;
        point.place.count = point.format.Count();
    }
}

KTDriverModbus::~KTDriverModbus()
{
    RequestStop();
    thread.Join();
}

bool KTDriverModbus::Start()
{
    (void)spdlog::default_logger_raw();  // made here, so that no thread meets it half made
    return thread.Start([](void* self) { static_cast<KTDriverModbus*>(self)->Run(); }, this);
}

void KTDriverModbus::RequestStop()
{
    {
        const std::lock_guard guard(mutex);
        stopping = true;
    }
    wake.notify_all();
    connection.Interrupt();
}

void KTDriverModbus::Join() { thread.Join(); }

bool KTDriverModbus::Write(int id, double value)
{
    tagSWrite write;
    write.id = id;
    write.asked = Steady::now();
    if (!points[static_cast<std::size_t>(id)].format.Encode(value, write.registers))
    {
        spdlog::warn("{}: {} doesn't fit its format and isn't written", LogName(id), value);
        return false;
    }
    if ((DeviceState() & stateError) != 0)
    {
        spdlog::warn("{}: {} isn't written, the device can't be reached", LogName(id), value);
        return false;
    }
    {
        const std::lock_guard guard(mutex);
        if (stopping || writes.size() >= maxWrites) return false;
        writes.push_back(write);
    }
    wake.notify_all();
    return true;
}

void KTDriverModbus::Run()
{
    while (!Stopping())
    {
        const Steady::time_point began = Steady::now();
        if (Reach())
        {
            TellReached();
            const Result result = Serve(began + pollPeriod);
            if (result == Result::done || IsStale(result)) continue;
        }
        if (Stopping()) return;
        TellLost();
        Pause();
    }
}

/// Polls, over a new connection where there is none. True when the device has answered.
bool KTDriverModbus::Reach()
{
    if (connection.IsOpen())
    {
        const Result result = Poll();
        if (!IsStale(result)) return result == Result::done;
    }
    return Open() && Poll() == Result::done;
}

/// Many devices close a connection on which they have heard nothing for a while, and a restarted one knows nothing of it:
/// as long as a new connection works, the device isn't lost.
bool KTDriverModbus::IsStale(Result result) const { return result == Result::closed && provenConnection; }

bool KTDriverModbus::Open()
{
    attempts.fetch_add(1, std::memory_order_relaxed);
    provenConnection = false;
    std::vector<KTModbusPlan::Point> places;
    for (const tagSPoint& point : points) places.push_back(point.place);
    plan = KTModbusPlan::Make(std::move(places));  // what was refused in one piece may have been mended meanwhile
    return connection.Open(host, port, unit);
}

/// Reads all blocks, with the writes that wait in between. `done` when the device has answered at all.
KTDriverModbus::Result KTDriverModbus::Poll()
{
    if (plan.empty()) return Probe();
    bool answer = false;
    for (std::size_t i = 0; i < plan.size(); ++i)
    {
        Result result = DoWrites();
        if (result == Result::done) result = ReadBlock(i);
        if (result == Result::closed || result == Result::lost) return result;
        // A gateway takes its time to find out, so it isn't asked for each block of a device that's gone.
        if (result == Result::unreachable && !answer) return result;
        if (result == Result::unreachable) RefuseBlock(plan[i]);
        answer = true;
    }
    provenConnection = true;
    return Result::done;
}

/// A device without variables still has a state. What the register holds, or whether there is one, doesn't matter.
KTDriverModbus::Result KTDriverModbus::Probe()
{
    std::uint16_t unused = 0;
    const Result result = connection.Read(KTModbusPlan::Table::holding, 0, 1, &unused);
    if (result != Result::done && result != Result::refused) return result;
    provenConnection = true;
    return Result::done;
}

/// Halves the block of the plan as long as the device refuses it for its addresses, so that one variable that the device
/// doesn't have leaves its neighbours their values.
KTDriverModbus::Result KTDriverModbus::ReadBlock(std::size_t index)
{
    std::array<std::uint16_t, KTModbusPlan::maxBits> registers;
    for (;;)
    {
        const KTModbusPlan::Block& block = plan[index];
        const Result result = connection.Read(block.table, block.address, block.count, registers.data());
        if (result == Result::done) PublishBlock(block, registers.data());
        if (result == Result::refused && connection.RefusedAddress() && block.points.size() > 1)
        {
            KTModbusPlan::Block first;
            KTModbusPlan::Block second;
            KTModbusPlan::Halve(block, first, second);
            plan[index] = std::move(first);
            plan.insert(plan.begin() + static_cast<std::ptrdiff_t>(index) + 1, std::move(second));
            continue;
        }
        if (result == Result::refused) RefuseBlock(block);
        return result;
    }
}

void KTDriverModbus::PublishBlock(const KTModbusPlan::Block& block, const std::uint16_t* registers)
{
    const KTDateTime now = KTClock::Get().UTC();
    for (const KTModbusPlan::Point& place : block.points)
    {
        tagSPoint& point = points[static_cast<std::size_t>(place.id)];
        const std::uint16_t* const first = registers + (place.address - block.address);
        Publish(place.id, point.format.Decode({first, static_cast<std::size_t>(place.count)}), now);
        if (point.refusal.empty()) continue;
        point.refusal.clear();
        spdlog::info("{}: can be read again", LogName(place.id));
    }
}

void KTDriverModbus::RefuseBlock(const KTModbusPlan::Block& block)
{
    for (const KTModbusPlan::Point& place : block.points)
    {
        PublishNone(place.id);
        std::string& refusal = points[static_cast<std::size_t>(place.id)].refusal;
        if (refusal == connection.Error()) continue;
        refusal = connection.Error();
        spdlog::warn("{}: the device refuses to read it: {}", LogName(place.id), refusal);
    }
}

/// Writes what is asked for until the next poll is due. Anything but `done` means that the connection is gone.
KTDriverModbus::Result KTDriverModbus::Serve(Steady::time_point until)
{
    for (;;)
    {
        const Result result = DoWrites();
        if (result != Result::done) return result;
        std::unique_lock lock(mutex);
        if (!wake.wait_until(lock, until, [this] { return stopping || !writes.empty(); })) return result;
        // Whoever writes without a pause must not keep the values from being read.
        if (stopping || Steady::now() >= until) return result;
    }
}

KTDriverModbus::Result KTDriverModbus::DoWrites()
{
    std::size_t waiting = 0;
    {
        const std::lock_guard guard(mutex);
        waiting = writes.size();
    }
    tagSWrite write;
    for (; waiting > 0 && TakeWrite(write); --waiting)
    {
        const Result result = DoWrite(write);
        if (result == Result::closed || result == Result::lost) return result;
    }
    return Result::done;
}

bool KTDriverModbus::TakeWrite(tagSWrite& write)
{
    const std::lock_guard guard(mutex);
    if (stopping || writes.empty()) return false;
    write = writes.front();
    writes.pop_front();
    return true;
}

KTDriverModbus::Result KTDriverModbus::DoWrite(tagSWrite write)
{
    if (Steady::now() - write.asked > std::chrono::milliseconds(writeLife))
    {
        spdlog::warn("{}: a write is dropped, the device couldn't be reached in time", LogName(write.id));
        return Result::done;
    }
    const tagSPoint& point = points[static_cast<std::size_t>(write.id)];
    const std::span<const std::uint16_t> registers(write.registers.data(), static_cast<std::size_t>(point.place.count));
    const Result result = connection.Write(point.place.table, point.place.address, registers);
    switch (result)
    {
        case Result::done:
            return ReadBack(write.id);
        case Result::refused:
        case Result::unreachable:
            spdlog::warn("{}: the device refuses a write: {}", LogName(write.id), connection.Error());
            return result;
        default:
            break;
    }
    // Once more over the next connection: the device may not have seen it, and the same value twice does no harm.
    if (++write.tries < 2)
    {
        const std::lock_guard guard(mutex);
        writes.push_front(write);
    }
    else
        spdlog::warn("{}: a write failed: {}", LogName(write.id), connection.Error());
    return result;
}

/// The written variable alone, so that its new value doesn't wait for the next poll.
KTDriverModbus::Result KTDriverModbus::ReadBack(int id)
{
    const KTModbusPlan::Point& place = points[static_cast<std::size_t>(id)].place;
    KTModbusFormat::Registers registers{};
    const Result result = connection.Read(place.table, place.address, place.count, registers.data());
    if (result == Result::done) PublishBlock({place.table, place.address, place.count, {place}}, registers.data());
    return result;
}

void KTDriverModbus::TellReached()
{
    backOff.Reset();
    SetError(false);
    answered.store(true, std::memory_order_release);
    if (!toldLost) return;
    toldLost = false;
    spdlog::info("{}: answers again", LogName());
}

void KTDriverModbus::TellLost()
{
    SetError(true);
    PublishNoValues();
    if (toldLost) return;
    toldLost = true;
    spdlog::warn("{}: can't be reached at {} port {}: {}", LogName(), host, port, connection.Error());
}

void KTDriverModbus::Pause()
{
    std::unique_lock lock(mutex);
    wake.wait_for(lock, std::chrono::milliseconds(backOff.Next()), [this] { return stopping; });
}

bool KTDriverModbus::Stopping()
{
    const std::lock_guard guard(mutex);
    return stopping;
}
