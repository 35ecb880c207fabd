// The server and the clients that people use.
#include <gtest/gtest.h>

#include <cstdlib>

#include "http/TestServer.h"

TEST(OrdinaryClients, OfPythonAreServed)
{
    TestServer server;
    server.AddUsers();
    server.Start();
    const std::string command = "/usr/bin/python3 " CORVANE_SOURCE_DIRECTORY
                                "/tests/http/ordinary_clients.py http://127.0.0.1:" +
                                std::to_string(server.Port()) + "/";
    EXPECT_EQ(std::system(command.c_str()), 0);
}

TEST(OrdinaryClients, OfTheCommandLineAreServed)
{
    TestServer server;
    server.AddUsers();
    server.Start();
    const std::string address = "http://127.0.0.1:" + std::to_string(server.Port());
    server.scratch.Write("ack.xml", "<eventsAck>" + std::string(1'000'000, ' ') + "</eventsAck>");
    server.scratch.Write("large.xml", "<eventsAck>" + std::string(3'000'000, ' ') + "</eventsAck>");
    const auto status = [&](const std::string& arguments)
    {
        const std::string out = server.scratch.path + "/status";
        const std::string command = "curl -s --max-time 20 -o /dev/null -w '%{http_code}' " + arguments + " > " + out;
        EXPECT_EQ(std::system(command.c_str()), 0) << command;
        std::string text;
        std::ifstream(out) >> text;
        return text;
    };
    EXPECT_EQ(status(address + "/"), "200");
    EXPECT_EQ(status("-I " + address + "/"), "200");
    EXPECT_EQ(status("-u ana:ana-pw " + address + "/services/events/actived.xml"), "200");
    EXPECT_EQ(status("-u ana:wrong " + address + "/services/events/actived.xml"), "401");
    EXPECT_EQ(status("-u olga:olga-pw --data-binary @" + server.scratch.path + "/ack.xml " + address +
                     "/services/events/ack.xml"),
              "204");
    EXPECT_EQ(status("-u olga:olga-pw --data-binary @" + server.scratch.path + "/large.xml " + address +
                     "/services/events/ack.xml"),
              "413");
    EXPECT_EQ(status("-u emil:emil-pw -X PUT -d 1 " + address + "/services/variables/A.B"), "404");
    EXPECT_EQ(status("--http1.0 " + address + "/health"), "200");
    EXPECT_EQ(status("--path-as-is " + address + "/console/../secret.txt"), "404");
}
