#pragma once

#include <string>
#include <string_view>

namespace kora {

// A text from outside (an identifier, a path, a URL, the echo text, an error
// description) as it goes into a log line. Control characters (C0, DEL and
// C1), bytes that are not UTF-8 and the backslash itself are written as
// visible escapes ("\n", "\x1b", "\u009b", "\\"), so the text can neither end
// the line nor drive a terminal, and an escape in the log always means the
// byte was there. A text longer than kMaxLoggedTextBytes is cut there, before
// escaping and never inside a character, and its full length is noted:
// "aaa... (41943040 bytes)".
std::string loggable(std::string_view outsideText);

// An XML trace of a service exchange: kept whole with its line breaks and tabs,
// so the exchange can be read as it went; everything else is escaped as
// loggable() does.
std::string loggableTrace(std::string_view trace);

}  // namespace kora
