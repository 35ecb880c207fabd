// The variables of all devices over HTTP: a list of them, and the setting of one.
#pragma once

#include <string>

#include "suite/http/KTHttpCall.h"

/// All devices with their variables, in the order of registration:
/// `{"devices":[{"name","type","description","state","variables":[{"name","description","value","time","flags","labels"}]}]}`.
/// `value` is null for none, `time` (UTC, whole seconds) while there never was one.
std::string VariablesJson();

/// PUT of a number, or of an empty body for "no value", to the variable that the call's rest names: 204; 404 for an unknown
/// one; 400 for a body that is no number, or an empty one where there has to be a value; 409 when it can't be written.
void PutVariable(KTHttpCall& call, KTHttpAnswer& answer);

/// A finite decimal number with `.` and perhaps an exponent, and nothing else but blanks around it.
bool ParseNumber(std::string_view text, double& number);
