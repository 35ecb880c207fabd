// The certificate of the server.
#pragma once

#include <string>

/// A certificate and its key, as PEM text.
struct KTHttpTls
{
    std::string certificate;
    std::string key;

    /// Reads both files and tries them. False with a reason for a person to read.
    bool Load(const std::string& certificateFile, const std::string& keyFile, std::string& error);
};
