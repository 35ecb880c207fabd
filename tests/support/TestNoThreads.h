// A system that gives no more threads.
#pragma once

#include <pthread.h>

#include <cstddef>

/// While it lives, a thread with the default stack can't be made: the default is set larger than any address space.
class TestNoThreads
{
public:
    TestNoThreads()
    {
        pthread_attr_t attributes;
        pthread_getattr_default_np(&attributes);
        pthread_attr_getstacksize(&attributes, &before);
        pthread_attr_setstacksize(&attributes, std::size_t{1} << 50);
        pthread_setattr_default_np(&attributes);
        pthread_attr_destroy(&attributes);
    }
    TestNoThreads(const TestNoThreads&) = delete;
    TestNoThreads& operator=(const TestNoThreads&) = delete;
    ~TestNoThreads()
    {
        pthread_attr_t attributes;
        pthread_getattr_default_np(&attributes);
        pthread_attr_setstacksize(&attributes, before);
        pthread_setattr_default_np(&attributes);
        pthread_attr_destroy(&attributes);
    }

private:
    std::size_t before = 0;
};
