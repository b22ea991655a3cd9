// The tool's command line, and its view of the daemon's file.
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <fstream>

#include "app/command_line.h"
#include "app/show.h"
#include "daemon/command_server.h"
#include "host_support.h"
#include "view/view.h"

namespace kv1905d {
namespace {

const std::string kModel = "/tmp/model.json", kTarget = "02:00:5e:00:02:00";

CommandLine parse(std::vector<std::string> words) {
    words.insert(words.begin(), "kv1905App");
    std::vector<char *> argv;
    for (std::string &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    return parseCommandLine(static_cast<int>(words.size()), argv.data());
}

TEST(CommandLine, AcceptsNamesNumbersAndDashes) {
    for (const ToolCommand &row : kToolCommands) {
        EXPECT_EQ(parse({row.name}).command, &row);
        EXPECT_EQ(parse({"--json", *row.number != '\0' ? row.number : row.name}).command, &row);
    }
    using Words = std::vector<std::string>;
    const CommandLine remote = parse({"--timeout", "0.5", "command", "MAC", "2", "--json", "-l"});
    EXPECT_EQ(remote.arguments, (Words{"MAC", "2", "--json", "-l"}));
    EXPECT_FALSE(remote.json);
    EXPECT_EQ(remote.run.timeout, Duration(500));
    const CommandLine led = parse({"led", "MAC", "2", "--json", "--no-wait"});  // 2 is not a command here
    EXPECT_EQ(led.arguments, (Words{"MAC", "2"}));
    EXPECT_TRUE(led.json && !led.run.wait);
}

// Returns the program's output and exit status while no daemon runs.
std::string call(const std::string &words) {
    FILE *pipe = popen(("bin/kv1905App " + words + " 2>&1 </dev/null; echo status $?").c_str(), "r");
    std::string output(4000, '\0');
    output.resize(fread(output.data(), 1, output.size(), pipe));
    pclose(pipe);
    return output;
}

constexpr const char *kNames = R"({"kv1905":{"DeviceList":[
    {"ID":"02:00:5e:00:01:00","ModelName":"root","IpAddress":""},
    {"ID":"02:00:5e:00:02:00","ModelName":"twin","IpAddress":"192.0.2.2","InterfaceList":[
        {"MACAddress":"02:00:5e:00:02:21","MediaType":261},{"MACAddress":"02:00:5e:00:02:22","MediaType":261}]},
    {"ID":"02:00:5e:00:03:00","ModelName":"twin","IpAddress":"192.0.2.3"},
    {"ID":"02:00:5e:00:04:00","ModelName":"`reboot`"}]}})";

TEST(App, ReportsErrorsWithAHint) {
    std::ofstream("/tmp/kv1905_datamodel.json") << kNames;
    const std::string mac = kTarget + " ", radio = mac + "02:00:5e:00:02:21 ";
    EXPECT_EQ(chmod("/tmp", 01777), 0);
    const bool isRoot = seteuid(65534) == 0;  // only root can
    const CommandServer foreign("/tmp/foreign.sock");
    EXPECT_EQ(seteuid(getuid()), 0);
    const std::tuple<std::string, const char *, int> rows[] = {
        {"", "a command is missing; 'kv1905App help' lists the commands", 2},
        {"rebot", "unknown command 'rebot'; did you mean 'reboot'?", 2},
        {"--bogus", "unknown option '--bogus'; see kv1905App --help", 2},
        {"--timeout", "a value is missing after '--timeout'; see kv1905App --help", 2},
        {"--timeout 0 show devices", "--timeout must be a number from 0.1 to 3600, not '0'", 2},
        {"--watch 0 show devices", "--watch must be a number from 1 to 3600, not '0'", 2},
        {"led root on --watch", "--watch is for 'show'", 2},
        {"led", "led: DEVICE is missing; usage: kv1905App led DEVICE on|off", 2},
        {"led " + mac + "maybe", "on|off must be on, off or a number from 0 (off) to 255, not 'maybe'", 2},
        {"led " + mac + "0x1", "a number from 0 (off) to 255, not '0x1'", 2},
        {"led " + mac + "on more", "unexpected argument 'more'; usage: kv1905App led DEVICE on|off", 2},
        {"led garage on", "no device 'garage' in the network, which has: root (02:00:5e:00:01:00), twin", 4},
        {"led '' on", "DEVICE must be a device's AL MAC or the end of it, its model name or its IP address, not ''", 2},
        {"led TWIN on", "device 'TWIN' is ambiguous; it fits: twin (02:00:5e:00:02:00), twin (02:00:5e:00:03:00)", 2},
        {"power " + mac + "5GHz off", "interface '5GHz' is ambiguous; it fits: 02:00:5e:00:02:21 (5GHz), 02:00", 2},
        {"power " + mac + "2.4GHz off", "no interface '2.4GHz' in twin, which has: 02:00:5e:00:02:21 (5GHz), ", 4},
        {"power 192.0.2.2 02:00:5e:00:02:29 off", "MEDIA-TYPE is missing: 02:00:5e:00:02:29 is no interface that", 2},
        {"power " + mac + mac + "01030 off", "MEDIA-TYPE must be 1 to 4 hexadecimal digits such as 0103", 2},
        {"power " + mac, "INTERFACE is missing; usage: kv1905App power DEVICE INTERFACE [MEDIA-TYPE] on|off", 2},
        {"power " + radio + "0105 256", "on|off must be on (0), off (2) or a number from 0 to 255, not '256'", 2},
        {"firmware root 8 1 u", "OPTION must be a number from 1 to 7, not '8'", 2},
        {"firmware root 1 256 u", "TOPOLOGY-OPTION must be a number from 0 to 255, not '256'", 2},
        {"firmware-result 1", "RESULT must be 0 (failed), 2 (download begun), 3 (downloaded), 4 (writing) or 5", 2},
        {"rssi root 02:00", "STATION-MAC must be a MAC address such as 02:00:5e:0a:01:01, not '02:00'", 2},
        {"log 16 0", "FACILITY must be a number from 0 (all) to 15, not '16'", 2},
        {"country ABCDE", "COUNTRY must be at most 4 letters, digits or '/', as agents accept", 2},
        {"country 'D;'", "COUNTRY must be at most 4 letters, digits or '/', as agents accept", 2},
        {"command " + mac + "led twin on", "not 'led'", 2},  // no command that agents run for others
        {"command root", "COMMAND is missing; usage: kv1905App command DEVICE COMMAND [WORD...]", 2},
        {"command root reboot", "DEVICE is missing; usage: kv1905App reboot DEVICE", 2},
        {"command root '2 garage " + std::string(40, 'x') + "'", "no device 'garage' in the network", 4},
        {"command root 02 garage", "no device 'garage'", 4},
        {"post 999", "CODE must be one of 102 103 ", 2},
        {"post 301 /tmp/none", "FILE /tmp/none: cannot be read", 2},
        {"show nothing", "WHAT must be devices, device, stations, links, interfaces, counters or status", 2},
        {"show devices root --file /tmp/kv1905_datamodel.json", "'show devices' accepts no DEVICE", 2},
        {"show devices --file /tmp/none", "--file /tmp/none: No such file or directory", 2},
        {"show device 01:00 --data-model /tmp/none --file /tmp/kv1905_datamodel.json", "ModelName: root", 0},
        {"show device --file /tmp/kv1905_datamodel.json", "DEVICE is missing; usage: kv1905App show device DEVICE", 2},
        {"show devices", "connect: No such file or directory; is kv1905d running?", 6},
        {"monitor", "monitor: /tmp/kv1905d.sock: connect: No such file or directory; is kv1905d running?", 6},
        {"reboot 192.0.2.9", "no device '192.0.2.9' in the network", 4},
        {"reboot root", "reboot: /tmp/kv1905d.sock: connect: No such file or directory; is kv1905d running?", 6},
        {"--socket " + std::string(200, 's') + " reboot root", "File name too long", 1},
        {isRoot ? "--socket /tmp/foreign.sock reboot root" : "--version",
         isRoot ? "of user 65534, who is neither root nor this user: Operation not permitted" : "kv1905App ",
         isRoot ? 7 : 0},
        {"view --serve --port 65536", "65535", 2},
        {"view --serve --output f", "excludes", 2},
        {"completion fish", "SHELL must be bash or zsh, not 'fish'", 2},
        // A shell gets no name that it would run, nor one of two devices.
        {"completion words --socket f led ''", "02:00:5e:00:03:00\n02:00:5e:00:04:00\nroot\nstatus", 0},
        {"completion words power " + radio, "02:00:5e:00:02:21\nstatus", 0},
        {"completion words led root of", "off\nstatus", 0}};
    for (const auto &[words, message, status] : rows) {
        const std::string output = call(words);
        EXPECT_CONTAINS(message, output) << words;
        EXPECT_CONTAINS("\nstatus " + std::to_string(status) + "\n", output) << words;
    }
    unlink("/tmp/kv1905_datamodel.json");
}

TEST(Show, PrintsTablesAndLists) {
    std::ofstream(kModel) << R"({"kv1905":{"Role":"Agent","Counters":{"FramesSent":42},
        "DeviceList":[{"ID":"02:00:5e:00:02:00","ModelName":"a\u001b[2Jb","Hops":null},
        {"ID":"D","ModelName":"near","Mode":"\u009b\u007f\u00e9","NeighborList":[
            {"ID":"02:00:5e:00:02:00","Interface":"I","MediaType":261,"ViaBridge":false}]}],
        "StationList":[
        {"Device":"D","Band":"5GHz","MACAddress":"Y","RSSI":-61,"SignalLevel":4,"Rate":866000,"LastDataDownlinkRate":0,
         "LastDataUplinkRate":999,"TimeStamp":"2023-11-14T22:13:20Z"},
        {"Device":"E","Band":"","MACAddress":"Z","RSSI":0,"TimeStamp":"2023-11-14T22:15:00Z"}]}})";
    const auto shown = [](const char *what, const std::string &alMac = "", bool json = false) {
        Network network(kModel);
        return show(network, {what, alMac, json, 1700000042});
    };
    EXPECT_CONTAINS("02:00:5e:00:02:00  a?[2Jb  -", shown("devices"));
    EXPECT_EQ(shown("device", kTarget), "ID: 02:00:5e:00:02:00\nModelName: a?[2Jb\nHops: -\n");
    EXPECT_EQ(shown("stations"),
              "DEVICE  BAND  STATION  SIGNAL dBm  LEVEL 0-5  RATE Mbit/s  DOWN  UP  SEEN (s ago)\n"
              "near    5GHz  Y        -61         4          866          0     0   42\n"
              "E       -     Z        0           -          -            -     -   0\n");  // the clock stepped back
    EXPECT_EQ(shown("stations", kTarget), "no stations\n");
    EXPECT_EQ(shown("links"),
              "DEVICE  INTERFACE  NAME  NEIGHBOUR  VIA BRIDGE\nnear    I          5GHz  a?[2Jb     false\n");
    EXPECT_EQ(shown("status") + shown("counters"), "Role: Agent\nFramesSent: 42\n");
    EXPECT_CONTAINS("\"\\u009b\\u007f\xC3\xA9\"", shown("devices", "", true));
    const time_t now = std::time(nullptr);
    EXPECT_EQ(staleness(kModel, now), "");
    EXPECT_CONTAINS(kModel + " 1", staleness(kModel, now + 100));

    for (const char *text : {"", "[1]", "{\"kv1905\":"}) {
        std::ofstream(kModel) << text;
        EXPECT_EQ(resultOf([&] { shown("devices"); }).status, Status::Failure) << text;
        EXPECT_CONTAINS(kModel, resultOf([&] { modelText(kModel); }).meaning);
    }
    unlink(kModel.c_str());
    mkfifo(kModel.c_str(), 0600);
    EXPECT_EQ(resultOf([&] { shown("devices"); }).status, Status::Failure) << "a FIFO does not block the reader";
    unlink(kModel.c_str());
}

TEST(ViewPage, EscapesTextsOfTheNetwork) {
    const std::string hostile = viewPage("{\"a\":\"</script>&<!--\xE2\x80\xA8{{source}}{{model}}\"}", kViewDataPath);
    EXPECT_CONTAINS("\\u003c/script\\u003e\\u0026\\u003c!--\\u2028{{source}}{{model}}", hostile);
    EXPECT_CONTAINS("data-source=\"/data.json\"", hostile);
    EXPECT_CONTAINS("connect-src 'self'", hostile);
    EXPECT_EQ(viewPage("{}", "").find("connect-src"), std::string::npos);
}

TEST(ViewServer, AcceptsOnlyLoopbackNames) {
    for (const char *host : {"127.0.0.1", "127.0.0.1:1905", "localhost", "localhost:80"})
        EXPECT_TRUE(isLoopbackHost(host)) << host;
    for (const char *host :
         {"", "evil.example:80", "localhost:", "localhost:80x", "127.0.0.1.nip.io", "127.0.0.10", "evil@localhost"})
        EXPECT_FALSE(isLoopbackHost(host)) << host;
}

}  // namespace
}  // namespace kv1905d
