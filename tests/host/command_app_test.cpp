#include <unistd.h>

#include <ctime>
#include <fstream>

#include "app/app_options.h"
#include "app/arguments.h"
#include "app/result_file.h"
#include "app/show.h"
#include "command_support.h"

namespace kv1905d {
namespace {

constexpr const char *kPlugin = "lib/libkvMAP1905.so";  // below the build directory, where the tests run
const std::string kTarget = "02:00:5e:00:02:00";

RunOptions quickOptions(Time timeout = Time(5000)) {
    return {kPlugin, kTestSocket, kResultFile, timeout, true};
}

Status statusThrown(const std::function<void()> &call) {
    try {
        call();
    } catch (const Failure &failure) {
        return failure.status;
    } catch (const std::system_error &error) {
        return statusOf(error.code().value());
    }
    return Status::Success;
}

TEST(ResultFile, OnlyACompleteLineCounts) {
    const struct {
        const char *text;
        std::optional<uint8_t> value;
    } rows[] = {
        {"00\n", 0},
        {"10\n", 16},
        {"ff\n", 255},
        {"", std::nullopt},
        {"0", std::nullopt},
        {"00", std::nullopt},
        {"\n", std::nullopt},
        {"0\n", std::nullopt},
        {"0g\n", std::nullopt},
        {"-1\n", std::nullopt},
        {"000\n", std::nullopt},
        {"00\n\n", std::nullopt},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(parseResult(row.text), row.value) << row.text;
        std::ofstream(kResultFile) << row.text;
        {
            const ResultFile fresh(kResultFile, Time(0));
            EXPECT_EQ(fresh.read(), std::nullopt) << "left from before: " << row.text;
            std::ofstream(kResultFile) << row.text;
            EXPECT_EQ(fresh.await(Time(0)), row.value) << row.text;
        }
    }
}

TEST(ResultFile, OneToolAtATimeAndAnObstacleIsNamed) {
    {
        const ResultFile first(kResultFile, Time(0));
        EXPECT_EQ(statusThrown([] { ResultFile second(kResultFile, Time(50)); }), Status::NoAnswer);
    }
    unlink(kResultFile);
    ASSERT_EQ(mkdir("/tmp/obstacle", 0700), 0);
    EXPECT_NE(errorOf([] { ResultFile file("/tmp/obstacle", Time(0)); }).find("/tmp/obstacle"), std::string::npos);
    rmdir("/tmp/obstacle");
}

// The far side: the daemon's plug-in, which writes an agent's answer; empty means that no answer comes.
CommandActions agentThatSays(const std::string &answer) {
    return actionsOfTwo([answer](uint32_t, void *) {
        if (!answer.empty()) std::ofstream(kResultFile) << answer;
    });
}

TEST(RunPost, StatusAndMeaningOfEveryEnd) {
    const struct {
        uint32_t code;
        Bytes buffer;
        const char *answer;
        Status status;
        const char *meaning;  // part of it
    } rows[] = {
        {KV_CMD_REBOOT, bufferFor(mac(2), 6), "00\n", Status::Success, "success"},
        {KV_CMD_REBOOT, bufferFor(mac(1), 6), "00\n", Status::Success, "success"},
        {KV_CMD_REBOOT, bufferFor(mac(2), 6), "07\n", Status::Refused, "not this device's"},
        {KV_CMD_REBOOT, bufferFor(mac(2), 6), "02\n", Status::Refused, "not a result"},
        {KV_CMD_INTF_PWR_CTRL, bufferFor(mac(2), 252), "02\n", Status::Refused, "power state"},
        {KV_CMD_INTF_PWR_CTRL, bufferFor(mac(2), 252), "40\n", Status::Refused, "media type"},
        {KV_CMD_INTF_PWR_CTRL, bufferFor(mac(2), 252), "10\n", Status::Refused, "refused or failed"},
        {KV_CMD_REBOOT, bufferFor(mac(2), 6), "", Status::NoAnswer, "no answer"},
        {KV_CMD_REBOOT, bufferFor(mac(3), 6), "", Status::NoDevice, "no such device"},
        {KV_CMD_REBOOT, bufferFor(mac(2), 5), "", Status::BadArguments, "needs 6 bytes"},
        {KV_CMD_LED_CTRL, bufferFor(mac(1), 8), "", Status::Success, "this device itself"},
        {KV_CMD_LED_CTRL, bufferFor({}, 8), "", Status::Success, "nothing was sent"},
        {KV_CMD_LED_CTRL, bufferFor(mac(2), 8), "00\n", Status::Success, "success"},
        {KV_CMD_UPDATE_DEVICE_INFO, {}, "", Status::Success, "taken"},
        {kCommandRssi, bufferFor(mac(2), 12), "", Status::Success, "sent"},
        {kCommandRssi, bufferFor(mac(1), 12), "", Status::BadArguments, "another device"},
        {kCommandQueryStations, bufferFor(mac(3), 6), "", Status::NoDevice, "no such device"},
    };
    for (const auto &row : rows) {
        const ServedSocket daemon(agentThatSays(row.answer));
        const Outcome outcome = runPost(row.code, row.buffer, quickOptions(Time(*row.answer == '\0' ? 100 : 5000)));
        EXPECT_EQ(outcome.status, row.status) << row.code << outcome.meaning;
        EXPECT_NE(outcome.meaning.find(row.meaning), std::string::npos) << outcome.meaning;
        EXPECT_EQ(outcome.code.has_value(), *row.answer != '\0');
    }
    {
        const ServedSocket daemon(actionsOfTwo([](uint32_t, void *) {}, {1, 1}));
        const Outcome outcome = runPost(kCommandRssi, bufferFor(mac(2), 12), quickOptions());
        EXPECT_EQ(outcome.status, Status::NoDevice);
        EXPECT_NE(outcome.meaning.find("sent without figures"), std::string::npos) << outcome.meaning;
    }
    EXPECT_EQ(statusThrown([] { runPost(KV_CMD_UPDATE_DEVICE_INFO, {}, quickOptions()); }), Status::NoDaemon);
    const CommandServer hung(kTestSocket);  // accepts nothing
    EXPECT_EQ(statusThrown([] { runPost(KV_CMD_UPDATE_DEVICE_INFO, {}, quickOptions(Time(100))); }), Status::NoAnswer);
}

const ToolCommand &commandOf(std::string_view name) {
    return *std::find_if(std::begin(kToolCommands), std::end(kToolCommands),
                         [name](const ToolCommand &each) { return each.name == name; });
}

// A text that only the plug-in finds too long is in there as well.
TEST(RunCommand, ArgumentsAreCheckedAndReachTheDaemonAsItReadsThem) {
    const struct {
        const char *name;
        std::vector<std::string> arguments;
        Status status;
        const char *posted;  // hex of its start; empty: nothing is posted
    } rows[] = {
        {"reboot", {kTarget}, Status::Success, "02005E000200"},
        {"command", {kTarget, "99", "-l"}, Status::Success, "02005E000200 0200 0500 3939202D6C00"},
        {"command", {kTarget, "reboot", kTarget}, Status::Success, "02005E000200 0200 1300 322030323A"},
        {"command", {kTarget, std::string(2049, 'w')}, Status::BadArguments, ""},
        {"led", {kTarget, "1"}, Status::Success, "02005E000200 0100"},
        {"led", {kTarget, "on"}, Status::Success, "02005E000200 0100"},
        {"led", {kTarget, "off"}, Status::Success, "02005E000200 0000"},
        {"firmware-result", {"0"}, Status::Success, "00000000 00000000"},
        {"country", {"DE"}, Status::Success, ""},
        {"sync-country", {}, Status::Success, ""},
        {"log", {"0", "0", "6"}, Status::Success, "00000000 00000000 06000000"},
        {"firmware", {kTarget, "8", "0", "url"}, Status::BadArguments, ""},
        {"rssi", {kTarget, "02:00:5E:0a:01:01"}, Status::Success, "02005E000200 02005E0A0101"},
        {"query-stations", {kTarget}, Status::Success, "02005E000200"},
    };
    for (const auto &row : rows) {
        Bytes posted;
        const Bytes expected = fromHex(row.posted);
        const ServedSocket daemon(actionsOfTwo([&](uint32_t, void *buffer) {
            const auto *bytes = static_cast<const uint8_t *>(buffer);
            posted.assign(bytes, bytes + expected.size());
            std::ofstream(kResultFile) << "00\n";
        }));
        const Outcome outcome = runCommand(commandOf(row.name), row.arguments, quickOptions());
        EXPECT_EQ(outcome.status, row.status) << row.name << outcome.meaning;
        EXPECT_EQ(posted, expected) << row.name;
        EXPECT_EQ(outcome.meaning == "OPTION must be 1 to 7", std::string_view(row.name) == "firmware");
        EXPECT_EQ(outcome.code == 16, std::string_view(row.name) == "firmware");
    }
}

TEST(RunCommand, PowerWordsAreNotTheLedsAndTheRemoteOnesAreTheSame) {
    const std::string interface = "02:00:5e:00:02:20";
    const struct {
        const char *word;
        const char *number;
    } rows[] = {{"on", "0"}, {"off", "2"}, {"255", "255"}};
    using Words = std::vector<std::string>;
    for (const auto &row : rows) {
        const Words words{kTarget, interface, "0x0103", row.word};
        const Words numbers{kTarget, interface, "0x0103", row.number};
        EXPECT_EQ(checkArguments(commandOf("power"), words), numbers);
        Words remote{kTarget, "power"};
        remote.insert(remote.end(), words.begin(), words.end());
        Words remoteNumbers{kTarget, "3"};
        remoteNumbers.insert(remoteNumbers.end(), numbers.begin(), numbers.end());
        EXPECT_EQ(checkArguments(commandOf("command"), remote), remoteNumbers);
    }
}

// Without a plug-in and a daemon, which the tool must not come to need, and in one line that names the fault.
TEST(RunCommand, AWrongArgumentIsNamedBeforeAnythingHappens) {
    const struct {
        const char *name;
        std::vector<std::string> arguments;
        const char *said;
    } rows[] = {
        {"reboot", {}, "AL-MAC is missing"},
        {"reboot", {kTarget, "now"}, "'now' is too much"},
        {"reset", {"02-00-5e-00-02-00"}, "AL-MAC must be a MAC address"},
        {"led", {kTarget, "ON"}, "STATE must be on, off"},
        {"led", {kTarget, "-1"}, "not '-1'"},
        {"led", {kTarget, "65536"}, "not '65536'"},
        {"power", {kTarget, "wl0", "0103", "off"}, "INTERFACE-MAC must be"},
        {"power", {kTarget, kTarget, "zz", "off"}, "MEDIA-TYPE must be"},
        {"power", {kTarget, kTarget, "00103", "off"}, "MEDIA-TYPE must be"},
        {"power", {kTarget, kTarget, "0x", "off"}, "MEDIA-TYPE must be"},
        {"power", {kTarget, kTarget, "0103", "256"}, "STATE must be on (0), off (2)"},
        {"power", {kTarget, kTarget, "0103", ""}, "STATE must be on (0), off (2)"},
        {"firmware", {kTarget, "one", "1", "url"}, "OPTION must be 1 to 7, not 'one'"},
        {"firmware", {kTarget, "65537", "1", "url"}, "OPTION must be 1 to 7"},
        {"firmware", {kTarget, "1", "1", std::string(2049, 'u')}, "URL must be at most 2048"},
        {"firmware-result", {"9"}, "RESULT must be 0 (failed)"},
        {"firmware-result", {"1"}, "RESULT must be 0 (failed)"},
        {"country", {"ABCDE"}, "COUNTRY must be"},
        {"sync-country", {"DE"}, "the arguments are: none"},
        {"command", {kTarget, "ls", "-l"}, "COMMAND must be reboot, power"},
        {"command", {kTarget, "led", kTarget, "on"}, "COMMAND must be reboot, power"},
        {"command", {kTarget, "2"}, "AL-MAC is missing"},
        {"command", {kTarget, "power", kTarget, kTarget, "0103", "down"}, "STATE must be on (0)"},
        {"rssi", {kTarget}, "STATION-MAC is missing"},
        {"rssi", {kTarget, "wl0"}, "STATION-MAC must be"},
        {"log", {"a", "0"}, "FACILITY must be"},
        {"log", {"0", "2"}, "TARGET must be"},
        {"log", {"0", "0", "8"}, "LEVEL must be"},
    };
    RunOptions nothing = quickOptions();
    nothing.plugin = "/nowhere/plugin.so";
    for (const auto &row : rows) {
        const auto call = [&] { runCommand(commandOf(row.name), row.arguments, nothing); };
        EXPECT_EQ(statusThrown(call), Status::BadArguments) << row.name << row.said;
        const std::string said = errorOf(call);
        EXPECT_NE(said.find(row.said), std::string::npos) << said;
        EXPECT_TRUE(said.size() < 250 && said.find('\n') == std::string::npos) << said;
    }
}

TEST(RunCommand, WithoutADaemonNoLockStaysBehind) {
    const std::string lock = std::string(kResultFile) + ".lock";
    unlink(lock.c_str());
    EXPECT_EQ(statusThrown([] { runCommand(commandOf("reboot"), {kTarget}, quickOptions()); }), Status::NoDaemon);
    EXPECT_NE(access(lock.c_str(), F_OK), 0);
}

std::optional<AppOptions> parse(std::vector<const char *> arguments) {
    arguments.insert(arguments.begin(), "kv1905App");
    return parseAppOptions(static_cast<int>(arguments.size()), arguments.data());
}

TEST(AppOptions, NamesNumbersAndWordsThatLookLikeOptions) {
    for (const ToolCommand &row : kToolCommands) {
        EXPECT_EQ(parse({row.name})->command, &row);
        const char *other = *row.number != '\0' ? row.number : row.name;  // the older name, if there is one
        EXPECT_EQ(parse({"--json", other})->command, &row);
    }
    using Words = std::vector<std::string>;
    const auto remote = parse({"--timeout", "0.5", "command", "MAC", "2", "--json", "-l"});
    EXPECT_EQ(remote->arguments, (Words{"MAC", "2", "--json", "-l"}));
    EXPECT_FALSE(remote->json);
    EXPECT_EQ(remote->run.timeout, Time(500));
    const auto led = parse({"led", "MAC", "2", "--json", "--no-wait"});  // 2 is no command here
    EXPECT_EQ(led->arguments, (Words{"MAC", "2"}));
    EXPECT_TRUE(led->json && !led->run.wait);
    const auto post = parse({"post", "202", "file"});
    EXPECT_EQ(post->file, "file");
    EXPECT_EQ(post->post, findCommandRow(KV_CMD_SYNC_CTRL_PWD));
    const struct {
        std::vector<const char *> words;
        const char *said;
    } bad[] = {
        {{}, "subcommand is required"},
        {{"nonsense"}, "unknown command 'nonsense'"},
        {{"--bogus"}, "unknown option '--bogus'"},
        {{"--bogus", "reboot"}, "--bogus"},
        {{"show"}, "show what? devices, stations or device MAC"},
        {{"show", "all"}, "all"},
        {{"post", "x"}, "x"},
        {{"post", "999"}, "no command 999"},
        {{"--timeout", "0", "reboot"}, "--timeout"},
        {{"completion", "fish"}, "fish"},
    };
    for (const auto &row : bad) {
        EXPECT_EQ(statusThrown([&] { parse(row.words); }), Status::BadArguments) << row.said;
        const std::string said = errorOf([&] { parse(row.words); });
        EXPECT_NE(said.find(row.said), std::string::npos) << said;
    }
}

TEST(Show, TablesAndListsOfWhatTheFileSays) {
    const std::string path = "/tmp/model.json";
    std::ofstream(path)
        << R"({"kv1905":{"DeviceList":[{"ID":"02:00:5e:00:02:00","ModelName":"a\u001b[2Jb","Hops":null}],"StationList":[
        {"Device":"D","Band":"5GHz","MACAddress":"Y","RSSI":-61,"SignalLevel":4,"Rate":866000,"LastDataDownlinkRate":0,
         "LastDataUplinkRate":999,"TimeStamp":"2023-11-14T22:13:20Z"},
        {"Device":"D","Band":"","MACAddress":"Z","RSSI":0,"TimeStamp":"2023-11-14T22:15:00Z"},
        {"TimeStamp":"yesterday"}, 7]}})";
    const auto shown = [&](const char *what, const std::string &alMac = "", bool json = false) {
        return show(path, {what, alMac, json, 1700000042});
    };
    EXPECT_NE(shown("devices").find("02:00:5e:00:02:00  a?[2Jb  -"), std::string::npos) << shown("devices");
    EXPECT_NE(shown("device", kTarget).find("ModelName: a?[2Jb\nHops: -\n"), std::string::npos);
    EXPECT_EQ(shown("device", kTarget, true), shown("devices", "", true));
    const std::string title = "DEVICE  BAND  STATION  SIGNAL dBm  LEVEL 0-5  RATE Mbit/s  DOWN  UP  SEEN (s ago)\n";
    EXPECT_EQ(shown("stations"),
              title +  // the second was seen after now: the clock stepped back
                  "D       5GHz  Y        -61         4          866          0     0   42\n"
                  "D       -     Z        0           -          -            -     -   0\n"
                  "-       -     -        -           -          -            -     -   -\n"
                  "-       -     -        -           -          -            -     -   -\n");
    EXPECT_NE(shown("stations", "", true).find("\"SignalLevel\": 4"), std::string::npos);
    std::ofstream(path) << "{}";
    EXPECT_EQ(shown("stations", "", true), "[\n]\n");
    EXPECT_EQ(shown("stations"), "no stations\n");
    const time_t now = std::time(nullptr);
    EXPECT_EQ(staleness(path, now), "");
    EXPECT_NE(staleness(path, now + 100).find(path + " 1"), std::string::npos);

    const struct {
        const char *text;
        const char *what;
        std::string alMac;
        Status status;
    } bad[] = {{"{}", "device", kTarget, Status::NoDevice},      {"{}", "device", "", Status::BadArguments},
               {"{}", "device", "02:00", Status::BadArguments},  {"{}", "devices", kTarget, Status::BadArguments},
               {"{\"kv1905\":", "devices", "", Status::Failure}, {"[]", "devices", "", Status::Failure}};
    for (const auto &row : bad) {
        std::ofstream(path) << row.text;
        EXPECT_EQ(statusThrown([&] { shown(row.what, row.alMac); }), row.status) << row.text << row.what;
    }
    unlink(path.c_str());
    EXPECT_EQ(statusThrown([&] { shown("devices"); }), Status::NoDaemon);
}

}  // namespace
}  // namespace kv1905d
