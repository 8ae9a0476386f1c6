#include "dme/diagnostics.h"

#include <iostream>
#include <mutex>
#include <utility>

namespace dme {
namespace {

void writeToStandardError(const std::string& text) {
    std::cerr << text << std::flush;
}

std::mutex& handlerMutex() {
    static std::mutex mutex;
    return mutex;
}

DiagnosticHandler& currentHandler() {
    static DiagnosticHandler handler = writeToStandardError;
    return handler;
}

}  // namespace

DiagnosticHandler setDiagnosticHandler(DiagnosticHandler handler) {
    if (!handler) handler = writeToStandardError;
    std::lock_guard<std::mutex> lock(handlerMutex());
    std::swap(currentHandler(), handler);
    return handler;
}

void diagnose(const std::string& text) {
    DiagnosticHandler handler;
    {
        std::lock_guard<std::mutex> lock(handlerMutex());
        handler = currentHandler();
    }
    handler(text);
}

}  // namespace dme
