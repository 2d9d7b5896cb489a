#include "base/ZMessage.h"

#include <iostream>
#include <mutex>

namespace Ulmex {

namespace {
std::mutex sinkMutex;
ZMessageSink currentSink = nullptr;
void* currentContext = nullptr;
} // namespace

void ZSetMessageSink(ZMessageSink sink, void* context) {
    std::lock_guard<std::mutex> lock(sinkMutex);
    currentSink = sink;
    currentContext = context;
}

void ZReport(const std::string& line) {
    ZMessageSink sink;
    void* context;
    {
        std::lock_guard<std::mutex> lock(sinkMutex);
        sink = currentSink;
        context = currentContext;
    }
    if (sink) {
        sink(line, context);
        return;
    }
    std::cout << line << std::endl;
}

} // namespace Ulmex
