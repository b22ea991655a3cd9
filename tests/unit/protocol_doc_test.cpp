// docs/protocol.md is the reference that people read: its tables must equal those of the code.
#include <gtest/gtest.h>

#include <regex>
#include <set>

#include "protocol/intel_message.h"
#include "protocol/message_row.h"
#include "support/device_files.h"
#include "support/fake_host.h"

using namespace kvtest;

namespace {

// The matches of an expression in a file.
std::vector<std::smatch> rowsOf(const std::string &text, const std::regex &expression) {
    return {std::sregex_iterator(text.begin(), text.end(), expression), std::sregex_iterator()};
}

std::string fileText(const std::string &path) {
    return readFile(KV_SOURCE_DIRECTORY "/" + path);
}

}  // namespace

TEST(ProtocolDocument, TablesMatchCode) {
    std::multiset<std::string> documented, coded = {"0 mac"};
    const std::string document = fileText("docs/protocol.md");
    for (const auto &row : rowsOf(document, std::regex(R"(\n\| (0x\w+|\d+) \| (\w+) \|)")))
        documented.insert(std::to_string(std::stoi(row[1], nullptr, 0)) + " " + row.str(2));
    for (unsigned type = 0; type < 256; ++type) {
        const kv::MessageRow *row = kv::findMessageRow(static_cast<uint16_t>(type));
        if (row != nullptr && row->handle != nullptr) {
            coded.insert(std::to_string(type) + " " + kvVendorMessageName(type));
        }
        if (kv::findIntelMessageRow(static_cast<uint8_t>(type)) != nullptr) {
            coded.insert(std::to_string(type) + " " + kvIntelMessageName(type));
        }
    }
    const std::string features = "plugin/features/",
                      attributes = fileText(features + "config_exchange/config_exchange.cpp");
    for (const auto &row : rowsOf(attributes, std::regex(R"(CONF_ATTR_(\w+) = (\d+),)")))
        coded.insert(row.str(2) + " " + row.str(1));
    const std::string fields = fileText(features + "wifi_clients/client_report_codec.cpp");
    int number = 0;
    for (const auto &row : rowsOf(fields, std::regex(R"(readNumber<&WIFINeighborEntry::(\w+)(, 16)?>,)")))
        coded.insert(std::to_string(++number) + " " + row.str(1));
    EXPECT_EQ(documented, coded);
}
