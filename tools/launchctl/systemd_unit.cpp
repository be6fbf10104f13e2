#include "systemd_unit.h"

#include <algorithm>

namespace kora {
namespace {

bool needsQuotes(std::string_view argument) {
    // An unquoted lone ";" would separate two command lines.
    if (argument.empty() || argument == ";") return true;
    return std::any_of(argument.begin(), argument.end(), [](char c) {
        return static_cast<unsigned char>(c) <= ' ' || c == 0x7f || c == '"' || c == '\'' ||
               c == '\\';
    });
}

// systemd's C-style escape for a character inside double quotes.
std::string escaped(char c) {
    switch (c) {
        case '\\':
            return "\\\\";
        case '"':
            return "\\\"";
        case '\n':
            return "\\n";
        case '\t':
            return "\\t";
        case '\r':
            return "\\r";
        default:
            break;
    }
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= ' ' && byte != 0x7f) return std::string(1, c);
    static constexpr char kHex[] = "0123456789abcdef";
    return {'\\', 'x', kHex[byte >> 4], kHex[byte & 15]};
}

// '%' starts a specifier wherever systemd reads a unit; "%%" is a plain '%'.
std::string withoutSpecifiers(std::string_view text) {
    std::string result;
    for (const char c : text) result += c == '%' ? "%%" : std::string(1, c);
    return result;
}

std::string appendOutput(const std::string& path) {
    return "append:" + withoutSpecifiers(path);
}

}  // namespace

std::string unitName(const std::string& label) {
    return label + ".service";
}

std::string execArgument(std::string_view argument) {
    const bool quote = needsQuotes(argument);
    std::string result = quote ? "\"" : "";
    for (const char c : argument) {
        if (c == '%')
            result += "%%";
        else if (c == '$')
            result += "$$";  // "$NAME" would expand a variable
        else
            result += escaped(c);
    }
    if (quote) result += '"';
    return result;
}

std::string unitText(const JobDescription& job) {
    std::string text(kWrittenByLaunchctl);
    text += "[Unit]\nDescription=" + job.label + "\n";
    // KeepAlive restarts the job however often it stops; systemd would give up
    // after five starts in ten seconds.
    if (job.keepAlive) text += "StartLimitIntervalSec=0\n";

    text += "\n[Service]\n";
    if (!job.machServices.empty()) text += "Type=dbus\nBusName=" + job.machServices.front() + "\n";
    text += "ExecStart=";
    for (std::size_t i = 0; i < job.programArguments.size(); ++i)
        text += (i > 0 ? " " : "") + execArgument(job.programArguments[i]);
    text += "\n";
    if (job.keepAlive) text += "Restart=always\n";
    if (job.throttleInterval) text += "RestartSec=" + std::to_string(*job.throttleInterval) + "\n";
    if (job.standardOutPath) text += "StandardOutput=" + appendOutput(*job.standardOutPath) + "\n";
    if (job.standardErrorPath)
        text += "StandardError=" + appendOutput(*job.standardErrorPath) + "\n";

    text += "\n[Install]\nWantedBy=multi-user.target\n";
    return text;
}

std::string activationFileText(const std::string& busName, const std::string& label) {
    // With SystemdService, dbus-daemon asks systemd to start the unit and never
    // runs Exec itself.
    return std::string(kWrittenByLaunchctl) + "[D-BUS Service]\nName=" + busName +
           "\nExec=/bin/false\nUser=root\nSystemdService=" + unitName(label) + "\n";
}

}  // namespace kora
