#include "suite/tools/XmlFile.h"

#include "host/KTFiles.h"

kt::XmlInputFile::XmlInputFile(const KTWideString& path) : file(KTFiles::Get().Open(path.Str(), KTFiles::Mode::read)) {}

kt::XmlInputFile::~XmlInputFile() { KTFiles::Get().Close(file); }

bool kt::ReplaceFile(const KTWideString& path, const std::function<void(XmlOutput&)>& write)
{
    KTFiles& files = KTFiles::Get();
    const int file = files.OpenReplacement(path.Str());
    if (file == KTFiles::none) return false;
    XmlFileOutput output(file);
    write(output);
    if (output.Flush()) return files.Replace(file);
    files.Close(file);
    return false;
}
