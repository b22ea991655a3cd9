// The tool's command line, and what it shows of the daemon's file.
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <fstream>

#include "app/app_options.h"
#include "app/show.h"
#include "host_support.h"
#include "view/view.h"

namespace kv1905d {
namespace {

const std::string kModel = "/tmp/model.json", kTarget = "02:00:5e:00:02:00";

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
    EXPECT_EQ(remote->run.timeout, Duration(500));
    const auto led = parse({"led", "MAC", "2", "--json", "--no-wait"});  // 2 is no command here
    EXPECT_EQ(led->arguments, (Words{"MAC", "2"}));
    EXPECT_TRUE(led->json && !led->run.wait);
    EXPECT_EQ(parse({"post", "202", "file"})->post, findCommandRow(KV_CMD_SYNC_CTRL_PWD));
    EXPECT_EQ(parse({"view", "--output", "f", "--help"})->arguments, (Words{"--output", "f", "--help"}));
    const std::pair<std::vector<const char *>, const char *> bad[] = {{{}, "subcommand is required"},
                                                                      {{"nonsense"}, "unknown command 'nonsense'"},
                                                                      {{"--bogus"}, "unknown option '--bogus'"},
                                                                      {{"post", "999"}, "no command 999"},
                                                                      {{"--timeout", "0", "reboot"}, "--timeout"}};
    for (const auto &[words, said] : bad) {
        const auto call = [&, words = words] { parse(words); };
        EXPECT_EQ(statusThrown(call), Status::BadArguments) << said;
        EXPECT_SAYS(said, errorOf(call));
    }
}

TEST(Show, TablesAndListsOfWhatTheFileSays) {
    std::ofstream(kModel)
        << R"({"kv1905":{"DeviceList":[{"ID":"02:00:5e:00:02:00","ModelName":"a\u001b[2Jb","Hops":null},{"ID":"x"}],
        "StationList":[
        {"Device":"D","Band":"5GHz","MACAddress":"Y","RSSI":-61,"SignalLevel":4,"Rate":866000,"LastDataDownlinkRate":0,
         "LastDataUplinkRate":999,"TimeStamp":"2023-11-14T22:13:20Z"},
        {"Device":"D","Band":"","MACAddress":"Z","RSSI":0,"TimeStamp":"2023-11-14T22:15:00Z"}, 7]}})";
    const auto shown = [](const char *what, const std::string &alMac = "") {
        return show(kModel, {what, alMac, false, 1700000042});
    };
    EXPECT_SAYS("02:00:5e:00:02:00  a?[2Jb  -", shown("devices"));
    EXPECT_EQ(shown("device", kTarget), "ID: 02:00:5e:00:02:00\nModelName: a?[2Jb\nHops: -\n");
    EXPECT_EQ(shown("stations"),
              "DEVICE  BAND  STATION  SIGNAL dBm  LEVEL 0-5  RATE Mbit/s  DOWN  UP  SEEN (s ago)\n"
              "D       5GHz  Y        -61         4          866          0     0   42\n"
              "D       -     Z        0           -          -            -     -   0\n"  // the clock stepped back
              "-       -     -        -           -          -            -     -   -\n");
    const time_t now = std::time(nullptr);
    EXPECT_EQ(staleness(kModel, now), "");
    EXPECT_SAYS(kModel + " 1", staleness(kModel, now + 100));

    std::ofstream(kModel) << "{}";
    EXPECT_EQ(shown("stations"), "no stations\n");
    EXPECT_EQ(statusThrown([&] { shown("device", kTarget); }), Status::NoDevice);
    EXPECT_EQ(statusThrown([&] { shown("device"); }), Status::BadArguments);
    EXPECT_EQ(statusThrown([&] { shown("devices", kTarget); }), Status::BadArguments);
    for (const char *text : {"", "[1]", "{\"kv1905\":"}) {
        std::ofstream(kModel) << text;
        EXPECT_EQ(statusThrown([&] { shown("devices"); }), Status::Failure) << text;
        EXPECT_SAYS(kModel, errorOf([&] { modelText(kModel); }));
    }
    unlink(kModel.c_str());
    EXPECT_EQ(statusThrown([&] { shown("devices"); }), Status::NoDaemon);
    mkfifo(kModel.c_str(), 0600);
    EXPECT_EQ(statusThrown([&] { shown("devices"); }), Status::Failure) << "a FIFO does not block the reader";
    unlink(kModel.c_str());
}

TEST(ViewOptions, ServeOnlyWhenAskedAndNameWhatIsWrong) {
    const auto parseView = [](std::vector<std::string> words) {
        std::vector<char *> argv;
        words.insert(words.begin(), "kv1905-view");
        for (std::string &word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        return parseViewOptions(static_cast<int>(words.size()), argv.data());
    };
    EXPECT_EQ(parseView({"--output", "f"})->port, std::nullopt);
    EXPECT_EQ(parseView({"--serve"})->port, kDefaultViewPort);
    EXPECT_EQ(parseView({"--port", "0", "--serve"})->port, 0);
    EXPECT_EQ(parseView({"--data-model", "a", "--json", "--data-model", "b"})->dataModel, "b");
    const std::pair<std::vector<std::string>, const char *> bad[] = {
        {{"--port", "80"}, "--serve"}, {{"--serve", "--port", "65536"}, "65535"},
        {{"--bogus"}, "'--bogus'"},    {{"--serve", "--output", "f"}, "excludes"},
        {{"--output"}, "'--output'"},  {{"page"}, "'page'"}};
    for (const auto &[words, said] : bad) {
        const auto call = [&, words = words] { parseView(words); };
        EXPECT_EQ(statusThrown(call), Status::BadArguments) << said;
        EXPECT_SAYS(said, errorOf(call));
    }
}

TEST(ViewPage, WhatTheNetworkSaysEndsNoScriptAndFillsNoOtherPlace) {
    const std::string plain = viewPage("{}", kViewDataPath), file = viewPage("{}", "");
    const std::string hostile = viewPage("{\"a\":\"</script>&<!--\xE2\x80\xA8{{source}}{{model}}\"}", kViewDataPath);
    EXPECT_EQ(std::count(hostile.begin(), hostile.end(), '<'), std::count(plain.begin(), plain.end(), '<'));
    EXPECT_SAYS("\\u003c/script\\u003e\\u0026\\u003c!--\\u2028{{source}}{{model}}", hostile);
    EXPECT_SAYS("data-source=\"/data.json\"", hostile);
    EXPECT_SAYS("connect-src 'self'", plain);
    EXPECT_EQ(file.find("connect-src"), std::string::npos);
    EXPECT_SAYS(kViewPolicy, file);
    EXPECT_EQ(file.find("{{"), std::string::npos);
    std::ofstream(kModel) << "{}";
    EXPECT_SAYS("/tmp/none/mesh.html", errorOf([] { writeView(kModel, "/tmp/none/mesh.html"); }));
}

TEST(ViewServer, AnswersToLoopbackNamesAlone) {
    for (const char *host : {"127.0.0.1", "127.0.0.1:1905", "localhost", "localhost:80"})
        EXPECT_TRUE(isLoopbackHost(host)) << host;
    for (const char *host : {"", "evil.example:80", "localhost:", "localhost:80x", "localhost.example",
                             "127.0.0.1.nip.io", "127.0.0.1:80:80", "127.0.0.10", "evil@localhost", " localhost"})
        EXPECT_FALSE(isLoopbackHost(host)) << host;
}

}  // namespace
}  // namespace kv1905d
