// docs/protocol.md is the reference that people read: it lists the messages that the code has.
#include <gtest/gtest.h>

#include "kv1905/vendor_messages.h"
#include "support/device_files.h"
#include "support/sample_messages.h"

TEST(ProtocolDocument, ListsEachMessage) {
    const std::string document = kvtest::readFile(KV_SOURCE_DIRECTORY "/docs/protocol.md");
    for (const kvtest::SampleMessage &sample : kvtest::kSampleMessages) {
        const std::string row = "\n| " + std::to_string(sample.type) + " | " + kvVendorMessageName(sample.type) + " | ";
        EXPECT_NE(document.find(row), std::string::npos) << row;
    }
}
