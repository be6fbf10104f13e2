#pragma once

#include <string>

namespace kora {

// A text from a caller (an identifier, a path) as it may go into a log line:
// control characters escaped, and cut at the log's limit with its length
// noted, so no caller can forge lines or fill the disk through the log.
std::string loggable(const std::string& text);

}  // namespace kora
