#include <cstdio>

#include "engine/KTEventServer.h"

int main()
{
    KTEventServer server;
    const bool running = server.LoadCfg() && server.Start();
    std::printf("running %d, events %d, active %d\n", running, KTEventSystem::Get().EventsSize(),
                server.ActiveEventsCount());
    server.Stop();
    return running ? 0 : 1;
}
