#include "support/FaultyFiles.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "support/TestText.h"

namespace
{
std::string Narrow(const wchar_t* path) { return Utf8(KTWideString(path)); }

std::string DirectoryOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "" : path.substr(0, slash);
}

std::string NameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

bool Toss(FaultyFiles::Random& random) { return random() % 2 == 0; }
}  // namespace

FaultyFiles::FaultyFiles() : directories{"", "/"}, durableDirectories(directories), before(Install(this)) {}

FaultyFiles::~FaultyFiles() { Install(before); }

void FaultyFiles::Put(const std::string& path, const std::string& bytes)
{
    const std::lock_guard guard(mutex);
    const auto file = std::make_shared<File>(File{bytes, bytes, {}});
    names[path] = file;
    MakeDurable(path, file);
}

void FaultyFiles::Clear()
{
    const std::lock_guard guard(mutex);
    names.clear();
    durableNames.clear();
    directories = durableDirectories = {"", "/"};
    handles.clear();
    trace.clear();
    spoiled.clear();
    openFault = lengthFault = writeFault = commitFault = cutAt = 0;
    noDirectories = out = false;
}

bool FaultyFiles::Exists(const std::string& path) const
{
    const std::lock_guard guard(mutex);
    return names.contains(path);
}

bool FaultyFiles::IsDirectory(const std::string& path) const
{
    const std::lock_guard guard(mutex);
    return directories.contains(path);
}

std::string FaultyFiles::Content(const std::string& path) const
{
    const std::lock_guard guard(mutex);
    const auto found = names.find(path);
    return found == names.end() ? "missing" : found->second->now;
}

std::vector<std::string> FaultyFiles::Paths() const
{
    const std::lock_guard guard(mutex);
    std::vector<std::string> paths;
    for (const auto& [path, file] : names) paths.push_back(path);
    return paths;
}

std::vector<std::string> FaultyFiles::Trace()
{
    const std::lock_guard guard(mutex);
    return std::exchange(trace, {});
}

// The directories above a durable file are durable, and there.
void FaultyFiles::MakeDurable(const std::string& path, const std::shared_ptr<File>& file)
{
    file->durable = file->now;
    file->uncommitted.clear();
    durableNames[path] = file;
    for (std::string above = DirectoryOf(path); !above.empty(); above = DirectoryOf(above))
    {
        directories.insert(above);
        durableDirectories.insert(above);
    }
}

void FaultyFiles::Restart(Loss loss, Random& random)
{
    const std::lock_guard guard(mutex);
    handles.clear();
    trace.clear();
    const auto survives = [&] { return loss == Loss::none || (loss == Loss::some && Toss(random)); };
    Names left;
    for (const auto& [path, file] : durableNames)
        left[path] = std::make_shared<File>(File{Left(*file, loss, random), "", {}});
    for (const auto& [path, file] : names)
        if (!left.contains(path) && survives())
            left[path] = std::make_shared<File>(File{Left(*file, loss, random), "", {}});
    for (const std::string& directory : std::set<std::string>(directories))
        if (!durableDirectories.contains(directory) && !survives()) directories.erase(directory);
    names.clear();
    durableNames.clear();
    for (const auto& [path, file] : left)
    {
        names[path] = file;
        MakeDurable(path, file);
    }
    durableDirectories = directories;
    cutAt = 0;
    out = false;
}

// What the medium holds of a file: each write since the commit arrived whole, in part or not at all, and where later ones
// arrived without it there are zeros.
std::string FaultyFiles::Left(const File& file, Loss loss, Random& random)
{
    if (loss == Loss::all) return file.durable;
    if (loss == Loss::none) return file.now;
    std::string content = file.durable;
    for (const Write& write : file.uncommitted)
    {
        if (Toss(random))
            Apply(content, write, write.bytes.size());
        else if (Toss(random))
            Apply(content, write, random() % (write.bytes.size() + 1));
        else if (Toss(random))  // the length arrived, the bytes didn't
            content.resize(std::max(content.size(), write.offset + write.bytes.size()));
    }
    return content;
}

void FaultyFiles::Apply(std::string& content, const Write& write, std::size_t size)
{
    if (size == 0) return;
    content.resize(std::max(content.size(), write.offset + size));
    std::copy_n(write.bytes.data(), size, content.data() + write.offset);
}

bool FaultyFiles::Due(int& fault) { return fault > 0 && --fault == 0; }

bool FaultyFiles::Step(const std::string& what)
{
    if (out) return false;
    ++operations;
    trace.push_back(what);
    out = operations == cutAt;
    return !out;
}

FaultyFiles::Handle* FaultyFiles::Find(int file)
{
    const auto found = handles.find(file);
    return found == handles.end() ? nullptr : &found->second;
}

bool FaultyFiles::HasDirectoryOf(const std::string& path) const { return directories.contains(DirectoryOf(path)); }

int FaultyFiles::Give(Handle handle)
{
    handles[++nextHandle] = std::move(handle);
    return nextHandle;
}

int FaultyFiles::Open(const wchar_t* path, Mode mode)
{
    const std::lock_guard guard(mutex);
    const std::string name = Narrow(path);
    const char* const words[] = {"read ", "open ", "create ", "create new "};
    if (!Step(words[static_cast<int>(mode)] + NameOf(name)) || Due(openFault)) return none;
    const auto found = names.find(name);
    if (found != names.end())
    {
        if (mode == Mode::createNew) return none;
        if (mode == Mode::create)
        {
            found->second->now.clear();
            found->second->durable.clear();  // what a commit had promised is given up with it
            found->second->uncommitted.clear();
        }
        return Give({found->second, name, mode != Mode::read, false});
    }
    if (mode == Mode::read || mode == Mode::readWrite || NameOf(name).empty() || !HasDirectoryOf(name) ||
        directories.contains(name))
        return none;
    names[name] = std::make_shared<File>();
    return Give({names[name], name, true, false});
}

void FaultyFiles::Close(int file)
{
    const std::lock_guard guard(mutex);
    if (Handle* const handle = Find(file); handle != nullptr && Step("close " + NameOf(handle->path)))
        handles.erase(file);
}

std::int64_t FaultyFiles::Length(int file)
{
    const std::lock_guard guard(mutex);
    Handle* const handle = Find(file);
    if (handle == nullptr || !Step("length " + NameOf(handle->path)) || Due(lengthFault)) return -1;
    return static_cast<std::int64_t>(handle->file->now.size());
}

std::ptrdiff_t FaultyFiles::ReadAt(int file, std::int64_t offset, void* buffer, std::size_t size)
{
    const std::lock_guard guard(mutex);
    Handle* const handle = Find(file);
    if (handle == nullptr || offset < 0 || !Step("read " + NameOf(handle->path))) return -1;
    const std::string& content = handle->file->now;
    const auto from = static_cast<std::size_t>(offset);
    if (from >= content.size()) return 0;
    std::size_t count = std::min(size, content.size() - from);
    if (const auto bad = spoiled.find(handle->path); bad != spoiled.end() && bad->second >= from)
    {
        if (bad->second == from) return -1;
        count = std::min(count, bad->second - from);
    }
    std::memcpy(buffer, content.data() + from, count);
    return static_cast<std::ptrdiff_t>(count);
}

std::ptrdiff_t FaultyFiles::WriteAt(int file, std::int64_t offset, const void* data, std::size_t size)
{
    const std::lock_guard guard(mutex);
    Handle* const handle = Find(file);
    if (out || handle == nullptr || offset < 0 || !handle->writable) return -1;
    const bool done = Step("write " + NameOf(handle->path) + " " + std::to_string(offset) + "+" + std::to_string(size));
    std::size_t kept = size;
    if (Due(writeFault))
    {
        if (writeKept < 0) return -1;
        kept = std::min(size, static_cast<std::size_t>(writeKept));
    }
    // A write that the power cut met may have arrived all the same.
    const Write write{static_cast<std::size_t>(offset), std::string(static_cast<const char*>(data), kept)};
    Apply(handle->file->now, write, kept);
    handle->file->uncommitted.push_back(write);
    return done ? static_cast<std::ptrdiff_t>(kept) : -1;
}

bool FaultyFiles::Commit(int file)
{
    const std::lock_guard guard(mutex);
    Handle* const handle = Find(file);
    if (handle == nullptr || !Step("commit " + NameOf(handle->path)) || Due(commitFault)) return false;
    const auto named = names.find(handle->path);
    if (named != names.end() && named->second == handle->file) MakeDurable(handle->path, handle->file);
    return true;
}

bool FaultyFiles::CreateDirectories(const wchar_t* path)
{
    const std::lock_guard guard(mutex);
    const std::string name = Narrow(path);
    if (!Step("directories " + NameOf(name)) || noDirectories || name.empty()) return false;
    std::vector<std::string> missing;
    for (std::string above = DirectoryOf(name); !directories.contains(above); above = DirectoryOf(above))
    {
        if (names.contains(above)) return false;
        missing.push_back(above);
    }
    directories.insert(missing.begin(), missing.end());
    return true;
}

bool FaultyFiles::Delete(const wchar_t* path)
{
    const std::lock_guard guard(mutex);
    const std::string name = Narrow(path);
    if (!Step("delete " + NameOf(name)) || names.erase(name) == 0) return false;
    durableNames.erase(name);
    return true;
}

KTFiles::Renaming FaultyFiles::Rename(const wchar_t* from, const wchar_t* to)
{
    const std::lock_guard guard(mutex);
    const std::string source = Narrow(from);
    const std::string target = Narrow(to);
    if (!Step("rename " + NameOf(source) + " " + NameOf(target))) return Renaming::failed;
    const auto found = names.find(source);
    if (found == names.end() || !HasDirectoryOf(target)) return Renaming::missing;
    if (names.contains(target)) return Renaming::failed;
    names[target] = durableNames[target] = found->second;
    names.erase(found);
    durableNames.erase(source);
    return Renaming::done;
}

bool FaultyFiles::Search(const wchar_t* directory, std::vector<KTFoundFile>& found)
{
    const std::lock_guard guard(mutex);
    found.clear();
    std::string name = Narrow(directory);
    while (name.size() > 1 && name.back() == '/') name.pop_back();
    if (!Step("search " + NameOf(name)) || !directories.contains(name)) return false;
    std::map<std::string, bool> entries;
    for (const auto& [path, file] : names)
        if (DirectoryOf(path) == name) entries[NameOf(path)] = false;
    for (const std::string& path : directories)
        if (!path.empty() && path != "/" && DirectoryOf(path) == name) entries[NameOf(path)] = true;
    for (const auto& [entry, isDirectory] : entries) found.push_back({Wide(entry), isDirectory});
    return true;
}

int FaultyFiles::OpenReplacement(const wchar_t* path)
{
    const std::lock_guard guard(mutex);
    const std::string name = Narrow(path);
    if (!Step("replacement " + NameOf(name)) || Due(openFault) || !HasDirectoryOf(name)) return none;
    return Give({std::make_shared<File>(), name, true, true});
}

bool FaultyFiles::Replace(int file)
{
    const std::lock_guard guard(mutex);
    Handle* const handle = Find(file);
    if (handle == nullptr || !handle->replacement || !Step("replace " + NameOf(handle->path))) return false;
    const Handle last = *handle;
    handles.erase(file);
    if (Due(commitFault) || directories.contains(last.path)) return false;
    names[last.path] = last.file;
    MakeDurable(last.path, last.file);
    return true;
}
