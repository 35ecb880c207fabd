// The request and the response with which the host's HTTP server calls the services.
#pragma once

#include <cstdint>

#include "host/KTString.h"

/// What a service reads of a request.
class KTHttpRequest
{
public:
    static constexpr std::uint32_t longStart = 2;  // flags: the long form of the response's start

    std::uint32_t flags = 0;
};

/// A reply under construction. Collects in memory and is sent when the service has returned, so that a slow client holds
/// no lock of the module.
///
/// Threads: belongs to one HTTP thread for the length of one service.
class KTHttpResponse
{
public:
    KTHttpResponse() = default;
    KTHttpResponse(const KTHttpResponse&) = delete;
    KTHttpResponse& operator=(const KTHttpResponse&) = delete;

    virtual int Start(int status, int mode) = 0;
    virtual int Write(const KTNarrowString& text) = 0;
    virtual int Write(const char* text, int length) = 0;  // -1: up to the terminator
    virtual int Flush() = 0;
    virtual bool Finish() = 0;  // its result is the service's own

    virtual ~KTHttpResponse() = default;
};

/// A document of the local server for the editors; false when it can't be had.
bool HttpGet(int kind, const wchar_t* user, const char* path, KTNarrowString& reply);
