// The program's commands one after the other in one process, so that a test can give thousands of them.
//
// Nothing waits for the disk: nobody cuts the power between two of them.
//
// Each line of standard input is a JSON array of arguments; each line of standard output {"code":…,"out":…,"err":…}.

#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "apps/corvane/Commands.h"
#include "suite/tools/KTSystemFiles.h"

int main()
{
    using Json = nlohmann::json;
    KTSystemFiles files(KTSystemFiles::Commits::leftOut);
    KTFiles::Install(&files);
    for (std::string line; std::getline(std::cin, line);)
    {
        std::vector<std::string> words{"corvane"};
        for (const Json& word : Json::parse(line)) words.push_back(word.get<std::string>());
        std::vector<const char*> arguments;
        for (const std::string& word : words) arguments.push_back(word.c_str());

        std::istringstream in;
        std::ostringstream out;
        std::ostringstream err;
        const int code = corvane::Main(static_cast<int>(arguments.size()), arguments.data(), {in, out, err});
        const Json result{{"code", code}, {"out", out.str()}, {"err", err.str()}};
        std::cout << result.dump(-1, ' ', false, Json::error_handler_t::replace) << std::endl;
    }
    KTFiles::Install(nullptr);
    return 0;
}
