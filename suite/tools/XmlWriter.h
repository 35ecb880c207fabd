// From a tree to text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "host/XmlDocument.h"

namespace kt
{
/// Where the text goes, in large pieces.
///
/// Errors:  Write tells a failure by false; nothing more is written then, and Flush is false.
/// Threads: one.
class XmlOutput
{
public:
    XmlOutput() { buffer.reserve(limit + 4096); }
    XmlOutput(const XmlOutput&) = delete;
    XmlOutput& operator=(const XmlOutput&) = delete;
    virtual ~XmlOutput() = default;

    void Put(char c) { buffer.push_back(c); }
    void Put(std::string_view text) { buffer.append(text); }
    void Fill(char c, std::size_t count) { buffer.append(count, c); }

    /// Called between elements, so that the buffer stays small.
    void Relieve()
    {
        if (buffer.size() >= limit) (void)Flush();  // a failure is told at the end
    }
    [[nodiscard]] bool Flush();

protected:
    virtual bool Write(std::string_view text) = 0;

private:
    static constexpr std::size_t limit = 64 * 1024;
    std::string buffer;
    bool good = true;
};

/// Collects in memory.
class XmlStringOutput final : public XmlOutput
{
public:
    std::string text;  // complete after Flush

protected:
    bool Write(std::string_view piece) override
    {
        text.append(piece);
        return true;
    }
};

/// Writes to a stream of the C library.
class XmlStreamOutput final : public XmlOutput
{
public:
    explicit XmlStreamOutput(std::FILE* to) : stream(to) {}

protected:
    bool Write(std::string_view piece) override
    {
        return std::fwrite(piece.data(), 1, piece.size(), stream) == piece.size();
    }

private:
    std::FILE* stream;  // the caller's
};

/// Writes to an open file of KTFiles, from its beginning.
class XmlFileOutput final : public XmlOutput
{
public:
    explicit XmlFileOutput(int to) : file(to) {}

protected:
    bool Write(std::string_view piece) override;

private:
    int file;                 // the caller's
    std::int64_t length = 0;  // bytes written
};

enum class XmlLayout
{
    dense,    // nothing between the elements
    indented  // for people: each element without text of its own has its children on lines of their own
};

/// The element and all below it. What XML can't hold is left out (control characters) or becomes U+FFFD (surrogates that
/// stand alone); all else is read back as it was. Doesn't recurse.
void WriteXml(XmlOutput& output, const XmlDocument::XmlNode& node, XmlLayout layout);
}  // namespace kt
