#pragma once

#include <functional>
#include <string>

// Texts from outside go into log lines through loggable() or loggableTrace().
#include "platform/loggable_text.h"

namespace kora {

// The system log is opened with the program's own name, options 39
// (LOG_PID | LOG_CONS | LOG_ODELAY | LOG_PERROR) and facility 24 (LOG_DAEMON).
inline constexpr int kSystemLogOptions = 39;
inline constexpr int kSystemLogFacility = 24;
inline constexpr int kPriorityInfo = 6;
inline constexpr int kPriorityError = 3;

enum class LogChannel {
    System,      // syslog, copied to standard error
    Diagnostic,  // one timestamped line to standard error, like NSLog
};

void openSystemLog();
void closeSystemLog();

// Lines to the system log: informational, and the two error lines.
void logInfo(const char* format, ...) __attribute__((format(printf, 1, 2)));
void logError(const char* format, ...) __attribute__((format(printf, 1, 2)));

// A line to the diagnostic log: "YYYY-MM-DD HH:MM:SS.mmm program[pid] text".
void logDiagnostic(const char* format, ...) __attribute__((format(printf, 1, 2)));

std::string stringWithFormat(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Tests capture log lines instead of writing them. An empty sink restores the
// real outputs.
using LogSink = std::function<void(LogChannel channel, int priority, const std::string& text)>;
void setLogSink(LogSink sink);

}  // namespace kora
