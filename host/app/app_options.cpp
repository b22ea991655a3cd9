#include "app_options.h"

#include <CLI/CLI.hpp>

#include "arguments.h"
#include "daemon/options.h"
#include "kv1905/version.h"
#include "result_file.h"

namespace kv1905d {
namespace {

constexpr double kDefaultTimeout = 10;    // seconds
constexpr double kShortestTimeout = 0.1;  // seconds
constexpr double kLongestTimeout = 3600;  // seconds

const std::vector<std::string> kShowable{"devices", "stations", "device"};

struct Line {
    CLI::App app{"Operator commands for the devices of an IEEE 1905.1 network, through this device's kv1905d.",
                 "kv1905App"};
    AppOptions options;
    double timeout = kDefaultTimeout;
    uint32_t code = 0;  // to post
    bool noWait = false;
};

std::string exampleOf(const std::string &text) {
    return "Example: kv1905App " + text;
}

std::string statusHelp() {
    std::string text = "Most commands also go by their numbers: kv1905App 2 is kv1905App reboot.\n\nExit status:\n";
    for (size_t i = 0; i < std::size(kStatusTexts); ++i)
        text += "  " + std::to_string(i) + "  " + kStatusTexts[i] + "\n";
    return text + "\n" + exampleOf("reboot 02:00:5e:00:02:00");
}

void declareOptions(Line &line) {
    RunOptions &run = line.options.run;
    run.plugin = kDefaultPlugin;
    run.socket = kDefaultCommandSocket;
    run.resultFile = kResultFile;
    line.options.dataModel = kDefaultDataModel;
    CLI::App &app = line.app;
    app.add_option("--plugin", run.plugin, "Plug-in library that checks the arguments")->capture_default_str();
    app.add_option("--socket", run.socket, "The daemon's local socket")->capture_default_str();
    app.add_option("--data-model", line.options.dataModel, "The daemon's JSON file, for show and view")
        ->capture_default_str();
    app.add_option("--timeout", line.timeout, "Seconds to wait for the daemon, other tools and the agent")
        ->check(CLI::Range(kShortestTimeout, kLongestTimeout))
        ->capture_default_str();
    app.add_flag("--no-wait", line.noWait, "Do not wait for an agent's answer [false]");
    app.add_flag("--json", line.options.json, "Print JSON [false]");
    app.set_version_flag("--version", std::string("kv1905App ") + KV1905_VERSION);
    app.require_subcommand(1);
    app.footer(statusHelp());
}

CLI::App *declare(Line &line, const std::string &name, const std::string &help, const std::string &example) {
    return line.app.add_subcommand(name, help)->footer(exampleOf(name + " " + example))->fallthrough();
}

// A raw command declares no arguments, so the usage line has to be told.
class RawUsage : public CLI::Formatter {
  public:
    explicit RawUsage(std::string arguments) : arguments_(std::move(arguments)) {}
    std::string make_usage(const CLI::App *app, std::string name) const override {
        std::string line = CLI::Formatter::make_usage(app, std::move(name));
        return line.insert(line.find_last_not_of('\n') + 1, " " + arguments_);
    }

  private:
    std::string arguments_;
};

void declareTools(Line &line) {
    for (const ToolCommand &row : kToolCommands) {
        CLI::App *sub = declare(line, row.name, row.help, row.example);
        if (*row.number != '\0') sub->alias(row.number);
        // Words of a remote command may look like options of ours: nothing behind its name is looked at.
        const bool isRaw = row.code == KV_CMD_COMMAND;
        if (isRaw) {
            const std::string usage = usageOf(row);
            sub->fallthrough(false)->prefix_command()->footer("Arguments: " + usage + "\n" +
                                                              exampleOf(std::string(row.name) + " " + row.example));
            sub->formatter(std::make_shared<RawUsage>(usage.substr(0, usage.find(';'))));
        } else {
            sub->add_option("arguments", line.options.arguments, usageOf(row))->type_name("");
        }
        sub->callback([&line, &row, sub, isRaw] {
            line.options.command = &row;
            line.options.name = row.name;
            if (isRaw) line.options.arguments = sub->remaining();
        });
    }
}

// A completion script for bash, made of what is declared.
std::string completionScript(const CLI::App &app) {
    const auto words = [](const std::vector<std::string> &list) { return CLI::detail::join(list, " "); };
    std::vector<std::string> names;
    std::vector<std::string> options;
    for (const CLI::App *sub : app.get_subcommands([](const CLI::App *) { return true; }))
        names.push_back(sub->get_name());
    for (const CLI::Option *option : app.get_options())
        options.push_back("--" + option->get_lnames().front());
    return "# bash completion for kv1905App\n"
           "_kv1905App() {\n"
           "    local word command= words='" +
           words(options) +
           "'\n"
           "    for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
           "        case \" " +
           words(names) +
           " \" in *\" $word \"*) command=$word && break ;; esac\n"
           "    done\n"
           "    case $command in\n"
           "        '') words+=' " +
           words(names) +
           "' ;;\n"
           "        show) words+=' " +
           words(kShowable) +
           "' ;;\n"
           "        completion) words=bash ;;\n"
           "    esac\n"
           "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"${COMP_WORDS[COMP_CWORD]}\")\n"
           "}\n"
           "complete -o default -F _kv1905App kv1905App\n";
}

std::string unknownCode(uint32_t code) {
    std::string text = "post: there is no command " + std::to_string(code) + ", only";
    for (const CommandRow &row : kCommandRows)
        text += " " + std::to_string(row.code);
    return text;
}

void declareOthers(Line &line) {
    AppOptions &options = line.options;
    const auto sets = [&options](AppOptions::Action action, const std::string &name) {
        return [&options, action, name] {
            options.action = action;
            options.name = name;
        };
    };
    CLI::App *post = declare(line, "post", "Post a raw command buffer to the daemon", "301");
    post->add_option("code", line.code, "Command code")->required();
    post->add_option("file", options.file, "File that holds the buffer [standard input, if the code reads any]");
    post->callback([&line, set = sets(AppOptions::Action::Post, "post")] {
        set();
        line.options.post = findCommandRow(line.code);
        if (line.options.post == nullptr) throw Failure(Status::BadArguments, unknownCode(line.code));
    });

    CLI::App *show = declare(
        line, "show",
        "Show the network as the daemon knows it, which is what each device told last; the controller knows most",
        "devices");
    show->add_option("what", options.what, "What to show")->required()->check(CLI::IsMember(kShowable));
    show->add_option("al-mac", options.alMac, "The device to show");
    show->callback(sets(AppOptions::Action::Show, "show"));

    // Its words are the other program's, --help included.
    CLI::App *view = declare(line, "view", "Draw the network as a web page; runs kv1905-view", "--output mesh.html");
    view->fallthrough(false)->prefix_command()->set_help_flag();
    view->callback([view, &options, set = sets(AppOptions::Action::View, "view")] {
        set();
        options.arguments = view->remaining();
    });

    CLI::App *completion = declare(line, "completion", "Print a completion script", "bash > kv1905App.bash");
    static const std::vector<std::string> shells{"bash"};
    completion->add_option("shell", "The shell")->required()->check(CLI::IsMember(shells));
    completion->callback([&line, set = sets(AppOptions::Action::Complete, "completion")] {
        set();
        line.options.script = completionScript(line.app);
    });
}

// In one line, and in the words that were typed where the parser would speak of its own.
std::string complaintOf(const CLI::App &app, const CLI::ParseError &error) {
    const std::vector<std::string> unknown = app.remaining();
    const bool isMissing = dynamic_cast<const CLI::RequiredError *>(&error) != nullptr;
    if (isMissing && app.got_subcommand("show")) return "show what? devices, stations or device MAC";
    if (isMissing && app.get_subcommands().empty() && !unknown.empty()) {
        return (unknown[0].starts_with('-') ? "unknown option '" : "unknown command '") + unknown[0] + "'; see --help";
    }
    std::string text = error.what();
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text + "; see --help";
}

}  // namespace

std::optional<AppOptions> parseAppOptions(int argc, const char *const *argv) {
    Line line;
    declareOptions(line);
    declareTools(line);
    declareOthers(line);
    try {
        line.app.parse(argc, argv);
    } catch (const CLI::Success &printed) {
        line.app.exit(printed);
        return std::nullopt;
    } catch (const CLI::ParseError &error) {
        throw Failure(Status::BadArguments, complaintOf(line.app, error));
    }
    line.options.run.timeout = Duration(static_cast<Duration::rep>(line.timeout * 1000));
    line.options.run.wait = !line.noWait;
    return line.options;
}

}  // namespace kv1905d
