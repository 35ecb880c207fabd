// The log of a period over HTTP.
#pragma once

#include "suite/http/KTHttpCall.h"
#include "suite/http/KTHttpServices.h"

/// The logger's document for the period that the query's `begin` and `end` name, each as `DDMMYYYYhhmmss` or
/// `YYYY-MM-DDThh:mm:ssZ`, UTC. 400 where one is missing, is no such date or lies outside the years that a log can hold
/// (2000 to 2063), and where the end isn't later than the begin.
void ServeLogger(const KTHttpServices& services, KTHttpCall& call, KTHttpAnswer& answer);
