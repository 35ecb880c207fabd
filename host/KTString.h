// The string of the whole system: wide (UTF-16 code units) and narrow (UTF-8 or ASCII).
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <string>

/// Operations on a character family that need no object.
///
/// Threads: stateless.
template <class CharT>
struct KTCharFamily
{
    /// Characters before the terminator; text must not be null.
    static constexpr int Length(const CharT* text) { return static_cast<int>(std::char_traits<CharT>::length(text)); }

    /// One shared empty text that nobody writes.
    static const CharT* EmptyString()
    {
        static constexpr CharT empty[1] = {};
        return empty;
    }

    /// 0 when equal, otherwise the sign of the order of the two texts, unit by unit, case-sensitive.
    static constexpr int Compare(const CharT* a, const CharT* b)
    {
        while (*a != CharT{} && *a == *b)
        {
            ++a;
            ++b;
        }
        if (*a == *b) return 0;
        return std::char_traits<CharT>::lt(*a, *b) ? -1 : 1;  // narrow units count as unsigned there
    }
};

/// Wide text: one UTF-16 code unit per element on every platform.
struct KTWideChar : KTCharFamily<wchar_t>
{
    /// Upper-case form by simple Unicode mapping, in no locale.
    static wchar_t ToUpper(wchar_t character);
};

/// Narrow text: UTF-8 or plain ASCII.
struct KTChar : KTCharFamily<char>
{
};

namespace kt
{
template <class CharT>
struct DefaultTraits;
template <>
struct DefaultTraits<wchar_t>
{
    using type = KTWideChar;
};
template <>
struct DefaultTraits<char>
{
    using type = KTChar;
};
}  // namespace kt

/// A text with value semantics that can borrow a text of its caller.
///
/// Units:   lengths and the spare capacity are characters; sizes in bytes count sizeof(CharT).
/// Errors:  an allocation that fails, or whose size passes 32 bits, throws std::bad_alloc and leaves the text as it was.
/// Threads: a plain value; one thread at a time.
/// Memory:  owns its buffer unless it is borrowed. A default-constructed text borrows the family's empty text and
///          allocates nothing. There is no small-string buffer.
template <class CharT, class Traits = typename kt::DefaultTraits<CharT>::type>
class KTBasicString
{
public:
    static constexpr std::uint32_t borrowedFlag = 0x10;
    static constexpr std::uint32_t growthMask = 0x21;
    static constexpr std::uint32_t growExact = 0x00;  // spare 0
    static constexpr std::uint32_t growSmall = 0x20;  // spare 0xFF, for accumulators of replies, paths and documents
    static constexpr std::uint32_t growLarge = 0x21;  // spare 0xFFFF
    static constexpr std::uint32_t growKeep = 0x01;   // the spare count of the moment

    KTBasicString() noexcept : buffer(const_cast<CharT*>(Traits::EmptyString())) {}

    /// An empty text with a growth policy; bits outside growthMask are not looked at.
    explicit KTBasicString(std::integral auto flags) noexcept : KTBasicString()
    {
        control |= static_cast<std::uint32_t>(flags) & growthMask;
    }

    /// `copy` set: an owned copy. Clear: borrows `text`, which must outlive this object or its next change.
    KTBasicString(const CharT* text, bool copy) : KTBasicString()
    {
        if (copy)
            Assign(text);
        else
            Attach(text);
    }
    explicit KTBasicString(const CharT* text) : KTBasicString() { Assign(text); }

    KTBasicString(const KTBasicString& other) : KTBasicString()
    {
        if (other.length > 0) Assign(other.buffer, other.length);
    }
    KTBasicString(KTBasicString&& other) noexcept : KTBasicString() { Swap(other); }
    ~KTBasicString() { Release(); }

    // Assign fills a fresh buffer before the old one goes, so a text may be assigned to itself.
    // NOLINTNEXTLINE(bugprone-unhandled-self-assignment)
    KTBasicString& operator=(const KTBasicString& other) { return Assign(other.buffer, other.length); }
    /// The growth policy stays this object's, as with every assignment. What `other` only borrows is copied, since its
    /// owner knows nothing of us; that is why it may throw.
    KTBasicString& operator=(KTBasicString&& other)  // NOLINT(performance-noexcept-move-constructor)
    {
        if (this == &other) return *this;
        if (other.Borrowed()) return Assign(other.buffer, other.length);
        Swap(other);
        const std::uint32_t policy = other.control & growthMask;
        other.control = (other.control & ~growthMask) | (control & growthMask);
        control = (control & ~growthMask) | policy;
        return *this;
    }
    KTBasicString& operator=(const CharT* text) { return Assign(text); }

    /// A fresh buffer is filled before the old one goes, so a text may be assigned from its own buffer.
    KTBasicString& Assign(const CharT* text, int count)
    {
        std::uint32_t spare = Spare();
        CharT* fresh = Allocate(static_cast<std::uint32_t>(count), spare);
        Copy(fresh, text, count);
        fresh[count] = CharT{};
        Adopt(fresh, count, spare);
        return *this;
    }
    KTBasicString& Assign(const CharT* text) { return Assign(text, Traits::Length(text)); }
    KTBasicString& Assign(const KTBasicString& other) { return Assign(other.buffer, other.length); }

    /// Borrows `text` without copying; the flags become exactly borrowedFlag, so a growth policy is forgotten.
    void Attach(const CharT* text)
    {
        const int count = Traits::Length(text);
        Release();
        buffer = const_cast<CharT*>(text);
        length = count;
        control = borrowedFlag;
    }

    KTBasicString& Append(const CharT* text, int count)
    {
        if (Borrowed())
        {
            // The text may lie in the borrowed buffer: that one stays alive, it isn't ours to free.
            Assign(buffer, length);
        }
        if (Spare() >= static_cast<std::uint32_t>(count))
        {
            Copy(buffer + length, text, count);
            length += count;
            buffer[length] = CharT{};
            SetSpare(Spare() - static_cast<std::uint32_t>(count));
            return *this;
        }
        std::uint32_t spare = Spare();
        CharT* fresh = Allocate(static_cast<std::uint32_t>(length) + static_cast<std::uint32_t>(count), spare);
        Copy(fresh, buffer, length);
        Copy(fresh + length, text, count);
        const int total = length + count;
        fresh[total] = CharT{};
        Adopt(fresh, total, spare);
        return *this;
    }
    KTBasicString& Append(const CharT* text) { return Append(text, Traits::Length(text)); }
    KTBasicString& Append(const KTBasicString& other) { return Append(other.buffer, other.length); }
    KTBasicString& Append(CharT character) { return Append(&character, 1); }
    KTBasicString& operator+=(const CharT* text) { return Append(text); }
    KTBasicString& operator+=(const KTBasicString& other) { return Append(other); }
    KTBasicString& operator+=(CharT character) { return Append(character); }

    /// `count` characters of `source` from `start` on into `destination`, which may be `source`. A start at or past the
    /// end gives the empty text; the count ends at the end of the source.
    static void SubString(KTBasicString& destination, const KTBasicString& source, int start, int count)
    {
        if (start < 0 || start >= source.length || count <= 0)
        {
            destination.Assign(Traits::EmptyString(), 0);
            return;
        }
        const int rest = source.length - start;
        destination.Assign(source.buffer + start, count < rest ? count : rest);
    }

    /// Index of the last `character`, or -1.
    [[nodiscard]] int ReverseFind(CharT character) const
    {
        for (int i = length - 1; i >= 0; --i)
            if (buffer[i] == character) return i;
        return -1;
    }

    /// The characters, NUL-terminated and never null; good until the next change.
    [[nodiscard]] const CharT* Str() const { return buffer; }
    [[nodiscard]] int Length() const { return length; }
    [[nodiscard]] bool Empty() const { return length == 0; }
    void Clear() { Assign(Traits::EmptyString(), 0); }

    /// What the control word holds, for those who tune accumulators.
    [[nodiscard]] bool Borrowed() const { return (control & borrowedFlag) != 0; }
    [[nodiscard]] std::uint32_t Spare() const { return control >> 8; }

    bool operator==(const KTBasicString& other) const { return Traits::Compare(buffer, other.buffer) == 0; }
    bool operator==(const CharT* text) const { return Traits::Compare(buffer, text) == 0; }

private:
    // A new buffer for `characters` and the terminator with the policy's spare; `spare` goes in as the count of the
    // moment and comes out as the new one.
    CharT* Allocate(std::uint32_t characters, std::uint32_t& spare) const
    {
        switch (control & growthMask)
        {
            case growSmall:
                spare = 0xFF;
                break;
            case growLarge:
                spare = 0xFFFF;
                break;
            case growKeep:
                break;
            default:
                spare = 0;
                break;
        }
        const std::uint64_t bytes = (std::uint64_t{spare} + characters + 1) * sizeof(CharT);
        if (characters >= static_cast<std::uint32_t>(std::numeric_limits<std::int32_t>::max()) ||
            bytes > std::numeric_limits<std::uint32_t>::max())
            throw std::bad_alloc();
        return static_cast<CharT*>(::operator new(static_cast<std::size_t>(bytes)));
    }

    static void Copy(CharT* to, const CharT* from, int count)
    {
        if (count > 0) std::memcpy(to, from, static_cast<std::size_t>(count) * sizeof(CharT));
    }

    void Adopt(CharT* fresh, int newLength, std::uint32_t spare)
    {
        Release();
        buffer = fresh;
        length = newLength;
        SetSpare(spare);
    }

    void SetSpare(std::uint32_t spare) { control = (control & 0xFF) | (spare << 8); }

    void Release() noexcept
    {
        if (Borrowed())
            control &= ~borrowedFlag;
        else
            ::operator delete(buffer);
    }

    void Swap(KTBasicString& other) noexcept
    {
        CharT* const b = buffer;
        const std::uint32_t c = control;
        const std::int32_t l = length;
        buffer = other.buffer;
        control = other.control;
        length = other.length;
        other.buffer = b;
        other.control = c;
        other.length = l;
    }

    CharT* buffer;                         // owned unless borrowedFlag is set; always NUL-terminated
    std::uint32_t control = borrowedFlag;  // low 8 bits flags, high 24 bits spare characters
    std::int32_t length = 0;               // characters without the terminator
};

using KTWideString = KTBasicString<wchar_t, KTWideChar>;
using KTNarrowString = KTBasicString<char, KTChar>;
