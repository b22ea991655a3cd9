// docs/protocol.md is the reference that people read: its tables must say what the catalogue says.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <regex>
#include <sstream>

#include "protocol/intel_message.h"
#include "protocol/message_row.h"
#include "support/device_files.h"
#include "support/fake_host.h"
#include "support/sample_messages.h"

using namespace kvtest;

namespace {

struct DocumentedRow {
    std::string name;
    std::string third;
};

// Rows of the table whose title line begins so, by the number in their first cell.
std::map<int, DocumentedRow> tableBehind(const std::string &title) {
    std::istringstream text(readFile(KV_SOURCE_DIRECTORY "/docs/protocol.md"));
    std::map<int, DocumentedRow> rows;
    bool isInside = false;
    const std::regex row(R"(\| (0x[0-9A-F]+|\d+) \| (\w+) \| (.*?) \|.*)");
    for (std::string line; std::getline(text, line);) {
        isInside = isInside ? line.starts_with('|') : line.starts_with(title);
        std::smatch cells;
        if (isInside && std::regex_match(line, cells, row)) {
            rows[std::stoi(cells[1], nullptr, 0)] = {cells[2], cells[3]};
        }
    }
    return rows;
}

}  // namespace

TEST(ProtocolDocument, ListsEveryMessageAsTheCatalogueHasIt) {
    const auto documented = tableBehind("| Type | Name | Payload bytes | Sent");
    size_t spoken = 0;
    for (uint16_t type = 0; type < VEND_MSG_TYPE_LIMIT; ++type) {
        const kv::MessageRow *row = kv::findMessageRow(type);
        if (row == nullptr || row->handle == nullptr) {
            continue;
        }
        ++spoken;
        const std::string name = kvVendorMessageName(type);
        ASSERT_TRUE(documented.count(type)) << name;
        EXPECT_EQ(documented.at(type).name, name);
        const auto sample = std::find_if(std::begin(kSampleMessages), std::end(kSampleMessages),
                                         [type](const SampleMessage &each) { return each.type == type; });
        ASSERT_NE(sample, std::end(kSampleMessages)) << name << " has no sample";
        const size_t bytes = fromHex(sample->payload).size();
        const std::string &length = documented.at(type).third;  // "6", "7 + text" or "7 + 9 each"
        const size_t fixed = std::stoul(length);
        const size_t plus = length.find('+');
        const bool hasEntries = length.ends_with(" each");
        const size_t entry = hasEntries ? std::stoul(length.substr(plus + 1)) : 1;
        EXPECT_TRUE(plus == std::string::npos ? bytes == fixed
                    : hasEntries              ? bytes == fixed + entry  // samples have one entry
                                              : bytes >= fixed)
            << name;
    }
    EXPECT_EQ(documented.size(), spoken) << "a message that nobody speaks";

    const auto intel = tableBehind("| Type | Name | Payload bytes | What");
    for (unsigned type = 0; type < 256; ++type) {
        const kv::IntelMessageRow *row = kv::findIntelMessageRow(static_cast<uint8_t>(type));
        ASSERT_EQ(row != nullptr, intel.count(static_cast<int>(type)) != 0) << type;
        if (row != nullptr) {
            EXPECT_EQ(intel.at(static_cast<int>(type)).name, kvIntelMessageName(type));
        }
    }
}

TEST(ProtocolDocument, DrawsTheEnvelopeAsItIsSent) {
    FakeHost host;
    const std::string text = readFile(KV_SOURCE_DIRECTORY "/docs/protocol.md");
    const Bytes sent = message(kAgent, 0x0102, Bytes(0x0304));
    EXPECT_EQ(head(sent, 3), fromHex("024EA7"));
    EXPECT_EQ(Bytes(sent.begin() + 9, sent.begin() + 15), fromHex("0001 0102 0304"));
    EXPECT_NE(
        text.find("|  02     4E     A7  | AL MAC of the device that built it      |  00     01  |    type     |   "
                  "length    | payload"),
        std::string::npos);
    for (const auto &[code, meaning] :
         {std::pair("0", "done"), std::pair("7", "the AL MAC"), std::pair("16", "refused")}) {
        EXPECT_NE(text.find(std::string(code) + " " + meaning), std::string::npos) << code;
    }
}

TEST(ProtocolDocument, ListsAttributesAndFieldsAsTheSourcesHaveThem) {
    const auto inSource = [](const char *path, const std::string &pattern) {
        const std::string text = readFile(std::string(KV_SOURCE_DIRECTORY "/plugin/features/") + path);
        std::map<int, std::string> found;
        const std::regex expression(pattern);
        for (auto at = std::sregex_iterator(text.begin(), text.end(), expression); at != std::sregex_iterator(); ++at) {
            found[(*at)[2].length() > 0 ? std::stoi((*at)[2]) : static_cast<int>(found.size())] = (*at)[1];
        }
        return found;
    };
    const auto namesOf = [](const std::map<int, DocumentedRow> &rows) {
        std::map<int, std::string> names;
        for (const auto &[number, row] : rows) {
            names[number] = row.name;
        }
        return names;
    };
    EXPECT_EQ(namesOf(tableBehind("| Type | What | Value |")),
              inSource("config_exchange/config_exchange.cpp", R"(CONF_ATTR_(\w+) = (\d+),)"));
    std::map<int, std::string> fields =
        inSource("wifi_clients/client_report_codec.cpp", R"(readNumber<&WIFINeighborEntry::(\w+)(?:, 16)?>,())");
    std::map<int, std::string> numbered = {{0, "mac"}};  // the first row of the table is not a number
    for (const auto &[number, name] : fields) {
        numbered[number + 1] = name;
    }
    EXPECT_EQ(namesOf(tableBehind("| Number | Field | As text |")), numbered);
}
