#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "platform/input_limits.h"
#include "platform/logging.h"
#include "soap/soap_binding.h"
#include "support/loopback_soap_server.h"

namespace kora {
namespace {

using namespace testing_support;

// A reply body is traced whole, line breaks and all, however long; only the
// control characters that could drive a terminal or hide text are escaped.
TEST(AnExchangeTrace, KeepsTheReplyBodyWholeWithItsLineBreaks) {
    std::string body = "<?xml version=\"1.0\"?>\r\n<junk>";
    std::string traced = "<?xml version=\"1.0\"?>\\r\n<junk>";
    while (body.size() <= 4 * kMaxLoggedTextBytes) {
        body += std::string("\tline\x1b[2J\0\n", 11);
        traced += "\tline\\x1b[2J\\x00\n";
    }
    LoopbackSoapServer server;
    server.answerAlways({.body = body});
    std::vector<std::string> traces;
    setLogSink([&](LogChannel, int, const std::string& text) { traces.push_back(text); });
    auto binding = std::make_shared<KORASoap12Binding>(server.url());
    binding->setLogXMLInOut(true);
    binding->CheckUsingParameters(KORA_Check());
    setLogSink({});
    EXPECT_NE(std::find(traces.begin(), traces.end(), "ResponseBody:\n" + traced), traces.end());
}

}  // namespace
}  // namespace kora
