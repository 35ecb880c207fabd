#include "host/KTGuid.h"

#include <pthread.h>
#include <sys/random.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>

namespace
{
// A child of fork must not hand out what the parent has in its buffer.
std::atomic<unsigned> forks{0};

void CountForks()
{
    [[maybe_unused]] static const int registered =
        pthread_atfork(nullptr, nullptr, [] { forks.fetch_add(1, std::memory_order_relaxed); });
}

bool FillRandom(unsigned char* out, std::size_t size)
{
    while (size > 0)
    {
        const ssize_t got = getrandom(out, size, 0);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        out += got;
        size -= static_cast<std::size_t>(got);
    }
    return true;
}

// One call of the system for many identifiers, kept per thread so that no lock is needed.
struct RandomBuffer
{
    unsigned char bytes[4096];
    std::size_t used = sizeof bytes;
    unsigned fork = 0;

    bool Take(unsigned char (&out)[16])
    {
        const unsigned now = forks.load(std::memory_order_relaxed);
        if (used == sizeof bytes || fork != now)
        {
            CountForks();
            used = sizeof bytes;
            if (!FillRandom(bytes, sizeof bytes)) return false;
            used = 0;
            fork = now;
        }
        std::memcpy(out, bytes + used, sizeof out);
        used += sizeof out;
        return true;
    }
};

class SystemSource final : public KTGuidSource
{
public:
    bool Next(GUID& guid) override
    {
        thread_local RandomBuffer buffer;
        unsigned char b[16];
        if (!buffer.Take(b)) return false;
        guid.Data1 = std::uint32_t{b[0]} << 24 | std::uint32_t{b[1]} << 16 | std::uint32_t{b[2]} << 8 | b[3];
        guid.Data2 = static_cast<std::uint16_t>(b[4] << 8 | b[5]);
        guid.Data3 = static_cast<std::uint16_t>((b[6] & 0x0F) << 8 | b[7] | 0x4000);  // version 4
        std::copy(b + 8, b + 16, guid.Data4);
        guid.Data4[0] = static_cast<std::uint8_t>((guid.Data4[0] & 0x3F) | 0x80);  // variant of RFC 4122
        return true;
    }
};

SystemSource& TheSystemSource()
{
    static auto* const source = new SystemSource;  // never destroyed: threads may still ask at the end of the process
    return *source;
}

std::atomic<KTGuidSource*> installed{nullptr};

// The text form: hyphens before these bytes.
constexpr bool HyphenBefore(int byte) { return byte == 4 || byte == 6 || byte == 8 || byte == 10; }

void GuidToBytes(const GUID& guid, std::uint8_t (&b)[16])
{
    for (int i = 0; i < 4; ++i) b[i] = static_cast<std::uint8_t>(guid.Data1 >> (24 - 8 * i));
    b[4] = static_cast<std::uint8_t>(guid.Data2 >> 8);
    b[5] = static_cast<std::uint8_t>(guid.Data2);
    b[6] = static_cast<std::uint8_t>(guid.Data3 >> 8);
    b[7] = static_cast<std::uint8_t>(guid.Data3);
    std::copy(guid.Data4, guid.Data4 + 8, b + 8);
}

template <class CharT>
CharT* Write(const GUID& guid, CharT* buffer)
{
    constexpr char digits[] = "0123456789ABCDEF";
    std::uint8_t b[16];
    GuidToBytes(guid, b);
    CharT* p = buffer;
    *p++ = CharT{'{'};
    for (int i = 0; i < 16; ++i)
    {
        if (HyphenBefore(i)) *p++ = CharT{'-'};
        *p++ = static_cast<CharT>(digits[b[i] >> 4]);
        *p++ = static_cast<CharT>(digits[b[i] & 15]);
    }
    *p++ = CharT{'}'};
    *p = CharT{};
    return buffer;
}

int DigitOf(wchar_t c)
{
    if (c >= L'0' && c <= L'9') return c - L'0';
    if (c >= L'A' && c <= L'F') return c - L'A' + 10;
    if (c >= L'a' && c <= L'f') return c - L'a' + 10;
    return -1;
}
}  // namespace

KTGuidSource& KTGuidSource::Get()
{
    KTGuidSource* const source = installed.load(std::memory_order_acquire);
    return source != nullptr ? *source : TheSystemSource();
}

KTGuidSource* KTGuidSource::Install(KTGuidSource* source)
{
    return installed.exchange(source, std::memory_order_acq_rel);
}

bool NewGUID(GUID& guid) { return KTGuidSource::Get().Next(guid); }

wchar_t* guidtow(const GUID& guid, wchar_t* buffer) { return Write(guid, buffer); }

char* guidtoc(const GUID& guid, char* buffer) { return Write(guid, buffer); }

GUID wtoguid(const wchar_t* text)
{
    if (text == nullptr) return nullGuid;
    const bool braces = *text == L'{';
    if (braces) ++text;
    std::uint8_t b[16];
    for (int i = 0; i < 16; ++i)
    {
        if (HyphenBefore(i) && *text++ != L'-') return nullGuid;
        const int high = DigitOf(*text);
        if (high < 0) return nullGuid;
        const int low = DigitOf(text[1]);
        if (low < 0) return nullGuid;
        b[i] = static_cast<std::uint8_t>(high << 4 | low);
        text += 2;
    }
    if (braces && *text++ != L'}') return nullGuid;
    if (*text != L'\0') return nullGuid;

    GUID guid;
    guid.Data1 = std::uint32_t{b[0]} << 24 | std::uint32_t{b[1]} << 16 | std::uint32_t{b[2]} << 8 | b[3];
    guid.Data2 = static_cast<std::uint16_t>(b[4] << 8 | b[5]);
    guid.Data3 = static_cast<std::uint16_t>(b[6] << 8 | b[7]);
    std::copy(b + 8, b + 16, guid.Data4);
    return guid;
}
