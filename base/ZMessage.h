// Where the library's reports go. Every "Error@Class::operation(): text" line the library
// prints passes through ZReport: by default it is written to standard output, as it always
// was; a host may route the lines elsewhere (its log, its UI) with ZSetMessageSink. The
// Python package routes them to the `logging` logger "groomcore".
#pragma once

#include <string>

namespace Ulmex {

// Receives one report line, without its newline. It may be called from any thread the
// library runs on, and from several at once; it must not call back into the library.
using ZMessageSink = void (*)(const std::string& line, void* context);

// Routes every later report to `sink` (with `context`); a null sink restores standard output.
void ZSetMessageSink(ZMessageSink sink, void* context);

// Sends one report line to the sink in force.
void ZReport(const std::string& line);

} // namespace Ulmex
