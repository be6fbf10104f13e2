#include "platform/logging.h"

#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <ctime>

namespace kora {
namespace {

LogSink& sink() {
    static LogSink instance;
    return instance;
}

std::string vformat(const char* format, va_list args) {
    va_list copy;
    va_copy(copy, args);
    const int length = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    if (length <= 0) return {};
    std::string text(static_cast<size_t>(length), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, args);
    return text;
}

void writeSystem(int priority, const std::string& text) {
    if (sink()) {
        sink()(LogChannel::System, priority, text);
        return;
    }
    syslog(priority, "%s", text.c_str());
}

std::string diagnosticTimestamp() {
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto millis =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() %
        1000;
    std::tm local{};
    localtime_r(&seconds, &local);
    char buffer[40];
    std::strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M:%S", &local);
    return stringWithFormat("%s.%03lld", buffer, static_cast<long long>(millis));
}

void writeDiagnostic(const std::string& text) {
    if (sink()) {
        sink()(LogChannel::Diagnostic, kPriorityInfo, text);
        return;
    }
    std::fprintf(stderr, "%s %s[%d] %s\n", diagnosticTimestamp().c_str(),
                 program_invocation_short_name, static_cast<int>(getpid()), text.c_str());
    std::fflush(stderr);
}

}  // namespace

void openSystemLog() {
    openlog(program_invocation_short_name, kSystemLogOptions, kSystemLogFacility);
}

void closeSystemLog() { closelog(); }

void logInfo(const char* format, ...) {
    va_list args;
    va_start(args, format);
    writeSystem(kPriorityInfo, vformat(format, args));
    va_end(args);
}

void logError(const char* format, ...) {
    va_list args;
    va_start(args, format);
    writeSystem(kPriorityError, vformat(format, args));
    va_end(args);
}

void logDiagnostic(const char* format, ...) {
    va_list args;
    va_start(args, format);
    writeDiagnostic(vformat(format, args));
    va_end(args);
}

std::string stringWithFormat(const char* format, ...) {
    va_list args;
    va_start(args, format);
    std::string text = vformat(format, args);
    va_end(args);
    return text;
}

void setLogSink(LogSink newSink) { sink() = std::move(newSink); }

}  // namespace kora
