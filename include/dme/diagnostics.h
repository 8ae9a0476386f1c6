#pragma once

#include <functional>
#include <string>

namespace dme {

// The library's diagnostics: the few plain-text reports it writes on its own (a JSON body that
// could not be parsed or an answer that could not be formatted, an exception that no handler
// claimed, a policy configured for a path that names nothing). Every one of them goes through
// diagnose(), which hands it to the current handler; the default handler writes the text to
// the standard error stream unchanged. An application routes them to its own log by installing
// a handler of its own.
//
// Thread-safe: diagnose() and setDiagnosticHandler() may be called from any thread. A handler
// runs on the thread that reports, outside the library's lock, and may itself call diagnose().

// Receives one report: one or more complete lines, each ending in '\n'.
using DiagnosticHandler = std::function<void(const std::string& text)>;

// Installs `handler` for every later report and returns the handler it replaces. An empty
// function restores the default (standard error).
DiagnosticHandler setDiagnosticHandler(DiagnosticHandler handler);

// Passes `text` to the current handler.
void diagnose(const std::string& text);

}  // namespace dme
