#include "options.h"

#include <gtest/gtest.h>

#include "host_support.h"

namespace kv1905d {
namespace {

std::optional<Options> parse(std::vector<const char *> arguments) {
    arguments.insert(arguments.begin(), "kv1905d");
    return parseOptions(static_cast<int>(arguments.size()), arguments.data());
}

TEST(Options, DefaultsAndValues) {
    const auto plain = parse({"-i", "lo"});
    ASSERT_TRUE(plain);
    EXPECT_EQ(plain->alMac, (MacAddress{{0x02, 0, 0, 0, 0, 0}}));  // of lo's all-zero MAC
    EXPECT_EQ(plain->plugin, "libkvMAP1905.so");
    EXPECT_EQ(plain->discoveryInterval, 60u);

    const auto full = parse({"--interface", "lo", "--al-mac", "02:00:5E:00:01:00", "--radio",
                             "wl0,02:00:5e:00:01:20,0x0103", "--radio", "wl1,02:00:5e:00:01:21,261", "--no-plugin"});
    ASSERT_TRUE(full);
    EXPECT_EQ(full->alMac, mac(1));
    EXPECT_EQ(full->plugin, "");
    ASSERT_EQ(full->radios.size(), 2u);
    EXPECT_EQ(full->radios[0].name, "wl0");
    EXPECT_EQ(full->radios[0].facts.mac, mac(1, 0x20));
    EXPECT_EQ(full->radios[1].facts.mediaType, 0x0105);
}

TEST(Options, BadOnesAreNamedInOneLine) {
    const struct {
        std::vector<const char *> arguments;
        const char *named;
    } rows[] = {
        {{}, "--interface"},
        {{"-i", "no-such-if"}, "no-such-if"},
        {{"-i", "lo", "-i", "lo"}, "lo"},
        {{"-i", "lo", "--bridge", "no-such-br"}, "no-such-br"},
        {{"-i", "lo", "--al-mac", "02:00:5e:00:01"}, "--al-mac 02:00:5e:00:01"},
        {{"-i", "lo", "--al-mac", "01:00:5e:00:01:00"}, "--al-mac"},
        {{"-i", "lo", "--radio", "wl0"}, "--radio wl0"},
        {{"-i", "lo", "--radio", "wl0,02:00:5e:00:01:20"}, "--radio"},
        {{"-i", "lo", "--radio", "wl0,02:00:5e:00:01:20,0x0001"}, "0x0001"},
        {{"-i", "lo", "--radio", "wl0,02:00:5e:00:01:20,0x01031"}, "0x01031"},
        {{"-i", "lo", "--radio", "a,02:00:5e:00:01:20,259", "--radio", "b,02:00:5e:00:01:20,259"}, "given twice"},
        {{"-i", "lo", "--discovery-interval", "0"}, "--discovery-interval"},
        {{"-i", "lo", "--query-interval", "soon"}, "soon"},
        {{"-i", "lo", "--data-model", ""}, "--data-model"},
        {{"-i", "lo", "--config", "/no/such/file"}, "/no/such/file"},
        {{"-i", "lo", "--unknown"}, "--unknown"},
    };
    for (const auto &row : rows) {
        try {
            parse(row.arguments);
            ADD_FAILURE() << "accepted, should name " << row.named;
        } catch (const BadOption &error) {
            const std::string text = error.what();
            EXPECT_NE(text.find(row.named), std::string::npos) << text;
            EXPECT_EQ(text.find('\n'), std::string::npos) << text;
        }
    }
}

}  // namespace
}  // namespace kv1905d
