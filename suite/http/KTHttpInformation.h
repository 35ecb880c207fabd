// The documents that tell what clients can open: screens and reports.
#pragma once

#include <string>
#include <vector>

/// `<scadaInformation><screens><screen>NAME</screen>...`, in the order of the names (UTF-8).
std::string ScadaInformation(const std::vector<std::string>& screens);

/// `<reportInformation><reports><report>NAME</report>...`
std::string ReportInformation(const std::vector<std::string>& reports);

// HttpGet of host/KTHttp.h gives the editors the same two documents, of the settings that are installed. It asks no server:
// the tool that configures an installation runs whether or not the server does.
