// Which handler answers which request.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "suite/http/KTHttpCall.h"

/// One row: a method and a path, who may ask, how large a body may be, and who answers.
struct KTHttpRoute
{
    std::string method;
    std::string path;  // exact; one that ends in `/*` stands for everything below
    KTHttpAccess access = KTHttpAccess::viewer;
    std::size_t bodyLimit = 0;  // bytes
    KTHttpHandler handler;
};

/// The table of routes. An exact path wins over a prefix, a longer prefix over a shorter one. HEAD asks for the row of GET.
///
/// Threads: rows are added before the server starts; after that any thread may look.
class KTHttpRouter
{
public:
    struct Found
    {
        const KTHttpRoute* route = nullptr;  // null: the path or the method is unknown
        std::string rest;                    // of a prefix
        std::string allowed;    // methods of a known path, as the header Allow wants them; empty: unknown path
        bool everyone = false;  // a known path that has a row for everyone
    };

    void Add(KTHttpRoute route) { routes.push_back(std::move(route)); }

    [[nodiscard]] Found Find(std::string_view method, std::string_view path) const;

private:
    std::vector<KTHttpRoute> routes;
};
