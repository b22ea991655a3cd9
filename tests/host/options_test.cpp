#include "options.h"

#include "host_support.h"

namespace kv1905d {
namespace {

std::optional<Options> parse(std::vector<const char *> arguments) {
    arguments.insert(arguments.begin(), "kv1905d");
    return parseOptions(static_cast<int>(arguments.size()), arguments.data());
}

TEST(Options, Values) {
    EXPECT_EQ(parse({"-i", "lo"})->alMac, (MacAddress{{0x02, 0, 0, 0, 0, 0}}));  // of lo's all-zero MAC
    const auto full = parse({"--interface", "lo", "--al-mac", "02:00:5E:00:01:00", "--radio",
                             "wl0,02:00:5e:00:01:20,0x0103", "--radio", "wl1,02:00:5e:00:01:21,261", "--no-plugin"});
    EXPECT_EQ(full->alMac, mac(1));
    ASSERT_EQ(full->radios.size(), 2u);
    EXPECT_EQ(full->radios[0].facts.mac, mac(1, 0x20));
    EXPECT_EQ(full->radios[1].facts.mediaType, 0x0105);
    EXPECT_EQ(full->settingsFrom, SettingsFrom::Any);
    EXPECT_EQ(parse({"-i", "lo", "--settings-from", "controller"})->settingsFrom, SettingsFrom::Controller);
}

TEST(Options, BadOnesAreNamedInOneLine) {
    const std::pair<std::vector<const char *>, const char *> rows[] = {
        {{}, "--interface"},
        {{"-i", "no-such-if"}, "no-such-if"},
        {{"-i", "lo", "-i", "lo"}, "lo"},
        {{"-i", "lo", "--al-mac", "02:00:5e:00:01"}, "--al-mac 02:00:5e:00:01"},
        {{"-i", "lo", "--al-mac", "01:00:5e:00:01:00"}, "--al-mac"},
        {{"-i", "lo", "--radio", "wl0,02:00:5e:00:01:20,0x0001"}, "0x0001"},
        {{"-i", "lo", "--radio", "wl0,02:00:5e:00:01:20,0x01031"}, "0x01031"},
        {{"-i", "lo", "--radio", "a,02:00:5e:00:01:20,259", "--radio", "b,02:00:5e:00:01:20,259"}, "given twice"},
        {{"-i", "lo", "--discovery-interval", "0"}, "--discovery-interval"},
        {{"-i", "lo", "--query-interval", "soon"}, "soon"},
        {{"-i", "lo", "--settings-from", "strangers"}, "strangers"},
        {{"-i", "lo", "--config", "/no/such/file"}, "/no/such/file"},
    };
    for (const auto &[arguments, named] : rows) {
        const std::string text = errorOf([&, words = arguments] { parse(words); });
        EXPECT_NE(text.find(named), std::string::npos) << named << ": " << text;
        EXPECT_EQ(text.find('\n'), std::string::npos) << text;
    }
}

}  // namespace
}  // namespace kv1905d
