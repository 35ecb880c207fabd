#include "suite/http/KTHttpFiles.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>

namespace
{
struct tagSType
{
    std::string_view extension;
    std::string_view type;
};
constexpr tagSType types[] = {
    {".html", "text/html; charset=utf-8"},
    {".css", "text/css; charset=utf-8"},
    {".js", "text/javascript; charset=utf-8"},
    {".mjs", "text/javascript; charset=utf-8"},
    {".json", "application/json"},
    {".txt", "text/plain; charset=utf-8"},
    {".svg", "image/svg+xml"},
    {".png", "image/png"},
    {".jpg", "image/jpeg"},
    {".ico", "image/x-icon"},
    {".woff2", "font/woff2"},
    {".webmanifest", "application/manifest+json"},
};

std::string_view TypeOf(std::string_view name)
{
    const auto* found = std::find_if(std::begin(types), std::end(types),
                                     [&](const tagSType& row) { return name.ends_with(row.extension); });
    return found == std::end(types) ? "application/octet-stream" : found->type;
}

// A part that is empty, begins with a dot or holds a backslash names no file of ours.
bool IsPlainPath(std::string_view name)
{
    while (true)
    {
        const std::string_view part = name.substr(0, name.find('/'));
        if (part.empty() || part.front() == '.' || part.find_first_of(std::string_view("\\\0", 2)) != part.npos)
            return false;
        if (part.size() == name.size()) return true;
        name.remove_prefix(part.size() + 1);
    }
}

std::string EntityTag(std::string_view content)
{
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    (void)EVP_Digest(content.data(), content.size(), digest.data(), nullptr, EVP_sha256(), nullptr);
    std::string tag = "\"";
    for (std::size_t i = 0; i < 16; ++i)
    {
        tag += "0123456789abcdef"[digest[i] >> 4];
        tag += "0123456789abcdef"[digest[i] & 15];
    }
    return tag + '"';
}

// A list of tags, each perhaps marked as weak, or `*`.
bool Holds(std::string_view list, std::string_view tag)
{
    while (!list.empty())
    {
        std::string_view one = TrimBlanks(list.substr(0, list.find(',')));
        list.remove_prefix(std::min(list.size(), list.find(',') == list.npos ? list.size() : list.find(',') + 1));
        if (one.starts_with("W/")) one.remove_prefix(2);
        if (one == tag || one == "*") return true;
    }
    return false;
}
}  // namespace

bool ReadWholeFile(const std::string& path, std::size_t limit, std::string& out)
{
    std::error_code none;
    if (!std::filesystem::is_regular_file(path, none)) return false;
    std::ifstream file(path, std::ios::binary);
    out.clear();
    std::array<char, 16 * 1024> part;
    while (file)
    {
        file.read(part.data(), part.size());
        out.append(part.data(), static_cast<std::size_t>(file.gcount()));
        if (out.size() > limit) return false;
    }
    return file.eof();
}

void KTHttpFiles::Serve(std::string_view name, const KTHttpCall& call, KTHttpAnswer& answer) const
{
    const std::string path = Find(name);
    std::string content;
    if (path.empty() || !ReadWholeFile(path, fileLimit, content))
        return answer.Text(404, "There is nothing under this path.");
    const std::string tag = EntityTag(content);
    const std::string* known = call.Header("If-None-Match");
    if (known != nullptr && Holds(*known, tag))
        answer.Empty(304);
    else
        answer.Document(TypeOf(name), content);
    answer.staticFile = true;
    answer.SetHeader("ETag", tag);
    answer.SetHeader("Cache-Control", "no-cache");
}

std::string KTHttpFiles::Find(std::string_view name) const
{
    if (!IsPlainPath(name)) return {};
    std::error_code failed;
    const std::filesystem::path root = std::filesystem::canonical(directory, failed);
    if (failed) return {};
    const std::filesystem::path found = std::filesystem::canonical(root / name, failed);
    if (failed) return {};
    // With all links followed, the file has to lie below the directory still.
    const auto [end, rest] = std::mismatch(root.begin(), root.end(), found.begin(), found.end());
    return end == root.end() && rest != found.end() ? found.string() : std::string();
}
