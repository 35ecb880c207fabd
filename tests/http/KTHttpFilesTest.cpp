#include "suite/http/KTHttpFiles.h"

#include <gtest/gtest.h>

#include "http/TestServer.h"

TEST(KTHttpFiles, ServesTypesThatBrowsersTakeAtTheirWord)
{
    TestServer server;
    const std::pair<const char*, const char*> rows[] = {
        {"a.html", "text/html; charset=utf-8"},
        {"a.css", "text/css; charset=utf-8"},
        {"a.js", "text/javascript; charset=utf-8"},
        {"a.json", "application/json"},
        {"a.svg", "image/svg+xml"},
        {"a.png", "image/png"},
        {"a.ico", "image/x-icon"},
        {"a.txt", "text/plain; charset=utf-8"},
        {"a.exe", "application/octet-stream"},
        {"a", "application/octet-stream"},
        {"a.html.bak", "application/octet-stream"},
    };
    for (const auto& [name, type] : rows) server.scratch.Write(std::string("console/") + name, "content");
    server.Start();
    for (const auto& [name, type] : rows)
        EXPECT_EQ(server.Ask("GET", std::string("/console/") + name).Header("Content-Type"), type) << name;
}

TEST(KTHttpFiles, TellsWhetherAFileHasChanged)
{
    TestServer server;
    server.Start();
    const RawReply first = server.Ask("GET", "/");
    const std::string tag = first.Header("ETag");
    ASSERT_FALSE(tag.empty());
    const struct
    {
        std::string known;
        int status;
    } rows[] = {
        {tag, 304}, {"W/" + tag, 304}, {"\"other\", " + tag, 304}, {"*", 304}, {"\"other\"", 200},
        {"", 200},  {",,", 200},
    };
    for (const auto& r : rows)
    {
        const RawReply reply = server.Ask("GET", "/", "If-None-Match: " + r.known + "\r\n");
        EXPECT_EQ(reply.status, r.status) << r.known;
        EXPECT_EQ(reply.Header("ETag"), tag) << r.known;
        EXPECT_EQ(reply.Header("Cache-Control"), "no-cache") << r.known;
    }
    server.scratch.Write("console/index.html", "<!DOCTYPE html><title>other  </title>");
    const RawReply changed = server.Ask("GET", "/", "If-None-Match: " + tag + "\r\n");
    EXPECT_EQ(changed.status, 200);
    EXPECT_NE(changed.Header("ETag"), tag);
}

TEST(KTHttpFiles, LetsNobodyOutOfTheDirectory)
{
    TestServer server;
    const std::string& root = server.scratch.path;
    server.scratch.Write("console/.hidden", "secret");
    server.scratch.Write("console/.git/config", "secret");
    server.scratch.Write("console/a\\b", "secret");
    server.scratch.Write("console-other/file", "secret");
    std::filesystem::create_symlink(root + "/secret.txt", root + "/console/link");
    std::filesystem::create_directory_symlink(root, root + "/console/up");
    std::filesystem::create_directory_symlink(root + "/console-other", root + "/console/sibling");
    std::filesystem::create_symlink("index.html", root + "/console/inside.html");
    std::filesystem::create_symlink("/etc/passwd", root + "/console/passwd");
    server.Start();
    const char* const targets[] = {
        "/console/../secret.txt",
        "/console/%2e%2e/secret.txt",
        "/console/%2E%2E%2Fsecret.txt",
        "/console/..%2fsecret.txt",
        "/console/js/../../secret.txt",
        "/console/js/%2e%2e/%2e%2e/secret.txt",
        "/console/%252e%252e/secret.txt",
        "/console/..\\secret.txt",
        "/console/..%5csecret.txt",
        "/console/a%5cb",
        "/console//etc/passwd",
        "/console/%2fetc/passwd",
        "/console///index.html",
        "/console/./index.html",
        "/console/index.html/",
        "/console/js",
        "/console/js/",
        "/console/",
        "/console/.hidden",
        "/console/.git/config",
        "/console/link",
        "/console/up/secret.txt",
        "/console/sibling/file",
        "/console/passwd",
        "/console-other/file",
        "/../secret.txt",
        "/index.html",
        "/console",
        "/console/index.html%20",
        "/console/%C3%BC",
        "/console/%ff%fe",
    };
    for (const char* target : targets)
    {
        const RawReply reply = server.Ask("GET", target);
        EXPECT_EQ(reply.status, 404) << target;
        EXPECT_EQ(reply.body.find("secret"), std::string::npos) << target;
    }
    for (const char* target : {"/console/index.html%00.txt", "/console/%00", "/console/%", "/console/%4"})
        EXPECT_EQ(server.Ask("GET", target).status, 400) << target;
    EXPECT_EQ(server.Ask("GET", "/console/inside.html").status, 200);  // a link that stays inside
    EXPECT_EQ(server.Ask("GET", "/console/" + std::string(5000, 'a')).status, 404);
}

TEST(KTHttpFiles, LeavesAFileThatIsTooLargeOrNoneAlone)
{
    ScratchDirectory scratch;
    scratch.Write("small", "12345");
    std::string content;
    EXPECT_TRUE(ReadWholeFile(scratch.path + "/small", 5, content));
    EXPECT_EQ(content, "12345");
    EXPECT_FALSE(ReadWholeFile(scratch.path + "/small", 4, content));
    EXPECT_FALSE(ReadWholeFile(scratch.path, 100, content));
    EXPECT_FALSE(ReadWholeFile(scratch.path + "/none", 100, content));
    EXPECT_FALSE(ReadWholeFile("/dev/zero", 100, content));
    scratch.Write("empty", "");
    EXPECT_TRUE(ReadWholeFile(scratch.path + "/empty", 0, content));
    EXPECT_EQ(content, "");
}
