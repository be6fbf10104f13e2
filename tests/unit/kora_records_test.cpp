#include <gtest/gtest.h>
#include <libxml/parser.h>

#include <string>
#include <vector>

#include "services/kora.h"
#include "services/kora_messages.h"
#include "services/xml_resources.h"

namespace kora {
namespace {

XmlDocument parse(const std::string& xml) {
    return XmlDocument(
        xmlReadMemory(xml.data(), static_cast<int>(xml.size()), nullptr, nullptr, 0));
}

KORA_CheckResponse readCheckResponse(const std::string& xml) {
    const XmlDocument doc = parse(xml);
    EXPECT_TRUE(doc) << xml;
    return KORA_CheckResponse::deserializeNode(doc ? xmlDocGetRootElement(doc.get()) : nullptr);
}

// A CheckResponse whose CheckResult carries `attributes` and `content`.
std::string checkResponseXml(const std::string& attributes, const std::string& content) {
    return "<r:CheckResponse xmlns:r='http://kora.olvara.com/ns/KORA'"
           " xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance'"
           " xmlns:tns='http://kora.olvara.com/ns/KORA' "
           "xmlns:xsd='http://www.w3.org/2001/XMLSchema'"
           " xmlns:other='urn:other'>"
           "<r:CheckResult " +
           attributes + ">" + content + "</r:CheckResult></r:CheckResponse>";
}

std::vector<std::string> childNames(xmlNodePtr node) {
    std::vector<std::string> names;
    for (xmlNodePtr child = node->children; child != nullptr; child = child->next) {
        names.emplace_back(textOf(child->name));
    }
    return names;
}

class KoraRecords : public testing::Test {
  protected:
    void SetUp() override { KORA::initialize(); }
    XmlDocument doc_{xmlNewDoc(BAD_CAST "1.0")};
};

TEST_F(KoraRecords, WriteOnlyPresentFieldsInFieldOrderWithTheKoraPrefix) {
    KORA_Check check;
    check.setVersion("2.0");
    check.setInstallationID("inst");
    xmlNodePtr node = check.xmlNodeForDoc(doc_.get(), "Check", std::string());
    EXPECT_STREQ(textOf(node->name), "KORA:Check");
    EXPECT_EQ(childNames(node), (std::vector<std::string>{"KORA:InstallationID", "KORA:Version"}));
    xmlFreeNode(node);

    KORA_cUpdate update;
    update.setSize_("12");
    node = update.xmlNodeForDoc(doc_.get(), "CheckResult", std::string("p"));
    EXPECT_STREQ(textOf(node->name), "p:CheckResult");
    EXPECT_EQ(childNames(node), std::vector<std::string>{"KORA:Size"});
    xmlFreeNode(node);
}

TEST_F(KoraRecords, FieldTablesFollowTheWireLayoutOfEachRecord) {
    struct Row {
        const std::vector<FieldSpec>& fields;
        std::size_t count;
        const char* first;
        const char* last;
    };
    const Row rows[] = {
        {KORA_Check::fieldTable(), 17, "InstallationID", "AdditionalInfo"},
        {KORA_DownloadError::fieldTable(), 21, "InstallationID", "ErrorMessage"},
        {KORA_InstallComplete::fieldTable(), 20, "InstallationID", "FinishTime"},
        {KORA_InstallCancel::fieldTable(), 21, "InstallationID", "CancelMessage"},
        {KORA_Uninstall::fieldTable(), 2, "InstallationID", "ProductID"},
        {KORA_cUpdate::fieldTable(), 18, "InstallationID", "GuiReleaseNotes"},
        {KORA_cError::fieldTable(), 2, "ErrorInstruction", "Parameters"},
        {KORA_DownloadErrorResponse::fieldTable(), 1, "DownloadErrorResult", "DownloadErrorResult"},
    };
    for (const Row& row : rows) {
        ASSERT_EQ(row.fields.size(), row.count) << row.first;
        EXPECT_EQ(row.fields.front().elementName, row.first);
        EXPECT_EQ(row.fields.back().elementName, row.last);
    }
    EXPECT_EQ(KORA_DownloadError().fields()[1].elementName, "UpdateID");
    EXPECT_EQ(KORA_DownloadError().fields()[2].elementName, "ProductID");
    EXPECT_TRUE(KORA_UninstallResponse().fields().empty());
}

TEST_F(KoraRecords, ACheckResponseWithEveryFieldReadsBackAsWritten) {
    KORA_cUpdate update;
    for (const FieldSpec& field : update.fields()) {
        if (field.declaredType == "NSString") {
            field.store(update, std::string("value of ") + std::string(field.elementName));
        }
    }
    update.setUpdateOrder(7);
    KORA_CheckResponse response;
    response.setCheckResult(update);

    // Written names are literal "KORA:..." names; reading needs them parsed.
    xmlNodePtr node = response.xmlNodeForDoc(doc_.get(), "CheckResponse", std::nullopt);
    xmlBufferPtr buffer = xmlBufferCreate();
    xmlNodeDump(buffer, doc_.get(), node, 0, 0);
    const std::string xml = std::string(textOf(xmlBufferContent(buffer)));
    xmlBufferFree(buffer);
    xmlFreeNode(node);
    EXPECT_EQ(readCheckResponse(xml.substr(0, 19) + " xmlns:KORA='urn:k'" + xml.substr(19)),
              response);
}

TEST_F(KoraRecords, ReadByLocalNameInADefaultNamespaceWithoutPrefixes) {
    const auto response = readCheckResponse(
        "<CheckResponse xmlns='http://kora.olvara.com/ns/KORA'><CheckResult>"
        "<UpdateID>u-1</UpdateID><Size>99</Size><Extra>x</Extra><Hash>AB</Hash>"
        "</CheckResult></CheckResponse>");
    ASSERT_TRUE(response.CheckResult());
    EXPECT_EQ(response.CheckResult()->UpdateID(), "u-1");
    EXPECT_EQ(response.CheckResult()->Size_(), "99");
    EXPECT_EQ(response.CheckResult()->Hash(), "AB");
    EXPECT_FALSE(response.CheckResult()->Name());
}

TEST_F(KoraRecords, TypeAttributesChooseTheReaderThroughTheNamespaceTable) {
    struct Row {
        const char* attribute;
        bool readsUpdate;
    };
    const Row rows[] = {
        {"", true},
        {"xsi:type='tns:cUpdate'", true},
        {"xsi:type='r:cUpdate'", true},
        {"xsi:type='tns:cUpdate:ignored'", true},
        {"xsi:type='KORA_cUpdate'", true},
        {"xsi:type='xsd:string'", false},
        {"xsi:type='tns:Check'", false},  // a record, but not one CheckResult can hold
        {"xsi:type='other:cUpdate'", false},
        {"xsi:type='nowhere:cUpdate'", false},
        {"xsi:type='cUpdate'", false},
    };
    for (const Row& row : rows) {
        const auto response =
            readCheckResponse(checkResponseXml(row.attribute, "<r:UpdateID>u</r:UpdateID>"));
        EXPECT_EQ(response.CheckResult().has_value(), row.readsUpdate) << row.attribute;
        if (row.readsUpdate) EXPECT_EQ(response.CheckResult()->UpdateID(), "u") << row.attribute;
    }
}

TEST_F(KoraRecords, TypeAttributesOnValueFieldsNameValueTypes) {
    const auto response =
        readCheckResponse(checkResponseXml("",
                                           "<r:UpdateID xsi:type='NSString'>a</r:UpdateID>"
                                           "<r:Name xsi:type='xsd:string'>b</r:Name>"
                                           "<r:Hash xsi:type='NSNumber'>3</r:Hash>"
                                           "<r:UpdateOrder xsi:type='NSNumber'>4</r:UpdateOrder>"));
    ASSERT_TRUE(response.CheckResult());
    EXPECT_EQ(response.CheckResult()->UpdateID(), "a");
    EXPECT_FALSE(response.CheckResult()->Name());
    EXPECT_FALSE(response.CheckResult()->Hash());
    EXPECT_EQ(response.CheckResult()->UpdateOrder(), 4);
}

TEST_F(KoraRecords, AnEmptyOrNilCheckResultIsAnUpdateWithoutFields) {
    for (const char* attribute : {"", "xsi:nil='true'"}) {
        const auto response = readCheckResponse(checkResponseXml(attribute, ""));
        ASSERT_TRUE(response.CheckResult()) << attribute;
        EXPECT_EQ(*response.CheckResult(), KORA_cUpdate());
    }
    EXPECT_FALSE(readCheckResponse("<CheckResponse/>").CheckResult());
}

TEST_F(KoraRecords, TheLaterOfTwoEqualElementsWins) {
    const auto response = readCheckResponse(checkResponseXml(
        "", "<r:Name>first</r:Name><r:Name>second</r:Name><r:Hash>h</r:Hash><r:Hash/>"));
    EXPECT_EQ(response.CheckResult()->Name(), "second");
    EXPECT_FALSE(response.CheckResult()->Hash());
}

TEST_F(KoraRecords, NumbersReadTheirLeadingDecimalAndEmptyReadsZero) {
    const std::pair<const char*, double> rows[] = {
        {"3", 3}, {"", 0}, {"  42abc", 42}, {"abc", 0}, {"-1.5", -1.5}};
    for (const auto& [text, expected] : rows) {
        const auto response = readCheckResponse(
            checkResponseXml("", std::string("<r:UpdateOrder>") + text + "</r:UpdateOrder>"));
        EXPECT_EQ(response.CheckResult()->UpdateOrder(), expected) << text;
    }
}

}  // namespace
}  // namespace kora
