#include "suite/http/KTHttpRouter.h"

#include <gtest/gtest.h>

namespace
{
KTHttpRouter Table()
{
    KTHttpRouter router;
    const auto add = [&](const char* method, const char* path, KTHttpAccess access, std::size_t mark) {
        router.Add({method, path, access, mark, {}});
    };
    add("GET", "/", KTHttpAccess::everyone, 1);
    add("GET", "/console/*", KTHttpAccess::everyone, 2);
    add("GET", "/console/special", KTHttpAccess::viewer, 3);
    add("GET", "/console/deep/*", KTHttpAccess::viewer, 4);
    add("POST", "/session", KTHttpAccess::everyone, 5);
    add("DELETE", "/session", KTHttpAccess::viewer, 6);
    add("PUT", "/variables/*", KTHttpAccess::engineer, 7);
    return router;
}
}  // namespace

TEST(KTHttpRouter, FindsTheRowOfMethodAndPath)
{
    const KTHttpRouter router = Table();
    const struct
    {
        const char* method;
        const char* path;
        std::size_t mark;  // 0: no row
        const char* rest;
        const char* allowed;
        bool everyone;
    } rows[] = {
        {"GET", "/", 1, "", "GET, HEAD", true},
        {"HEAD", "/", 1, "", "GET, HEAD", true},
        {"POST", "/", 0, "", "GET, HEAD", true},
        {"GET", "/console/a/b.js", 2, "a/b.js", "GET, HEAD", true},
        {"GET", "/console/", 2, "", "GET, HEAD", true},
        {"GET", "/console", 0, "", "", false},
        {"GET", "/console/special", 3, "", "GET, HEAD", false},
        {"GET", "/console/deep/x", 4, "x", "GET, HEAD", false},
        {"GET", "/session", 0, "", "POST, DELETE", true},
        {"HEAD", "/session", 0, "", "POST, DELETE", true},
        {"POST", "/session", 5, "", "POST, DELETE", true},
        {"DELETE", "/session", 6, "", "POST, DELETE", true},
        {"post", "/session", 0, "", "POST, DELETE", true},  // methods don't fold
        {"PUT", "/variables/A.B", 7, "A.B", "PUT", false},
        {"GET", "/variables/A.B", 0, "A.B", "PUT", false},
        {"GET", "/session/", 0, "", "", false},
        {"GET", "/Session", 0, "", "", false},
        {"GET", "//", 0, "", "", false},
        {"GET", "", 0, "", "", false},
        {"GET", "/*", 0, "", "", false},
    };
    for (const auto& r : rows)
    {
        const KTHttpRouter::Found found = router.Find(r.method, r.path);
        EXPECT_EQ(found.route == nullptr ? 0 : found.route->bodyLimit, r.mark) << r.method << ' ' << r.path;
        EXPECT_EQ(found.rest, r.rest) << r.method << ' ' << r.path;
        EXPECT_EQ(found.allowed, r.allowed) << r.method << ' ' << r.path;
        EXPECT_EQ(found.everyone, r.everyone) << r.method << ' ' << r.path;
    }
}
