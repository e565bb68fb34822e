// bridge-inspect: a read-only look into the shared tables of the bridge service.
#include "tools/command_line.h"
#include "tools/inspect/check.h"
#include "tools/inspect/segment.h"
#include "tools/inspect/tables.h"
#include "tools/inspect/watch.h"
#include "wire/value.h"

#include <bridge/port_exclusion.h>

#include <chrono>
#include <functional>
#include <thread>

namespace {

using namespace inspect;

enum Status { kFine = 0, kFaults = 1, kMissing = 2, kUsage = tools::kBadUsage, kBroken = 70, kOutput = 74 };

struct Options {
    int32_t vsd = 0;
    std::optional<int32_t> named_vsd; // of the command line
    bool json = false;
    bool watch = false;
    double interval = 1.0; // seconds
    unsigned looks = 0;    // 0: until the process is ended
    std::optional<std::string> vlans;
    std::optional<std::string> ports;
    bool remove = false;
    bool yes = false;
};

// One look; what cannot be read either ends it (Unreadable) or, where the rest is worth showing, is noted in `missing`.
using Lines = std::vector<std::string>;
using Look = std::function<Report(Lines &missing)>;

class Viewer {
  public:
    Viewer(const Options &options, Look look) : options_(options), look_(std::move(look)) {}

    Status run() {
        report_ = look_(missing_);
        show_missing();
        show_report();
        for (unsigned done = 1; options_.watch && std::cout && (options_.looks == 0 || done < options_.looks); ++done)
            look_again();
        return std::cout ? status() : kOutput;
    }

  private:
    void look_again() {
        std::this_thread::sleep_for(std::chrono::duration<double>(options_.interval));
        Lines missing;
        Report report = look_(missing);
        if (missing != missing_) {
            missing_ = missing;
            show_missing();
        }
        for (const Json &change : changes(report_, report))
            show_change(change);
        std::cout << std::flush;
        report_ = std::move(report);
    }

    void show_missing() const {
        for (const std::string &line : missing_)
            std::cerr << "bridge-inspect: " << line << '\n';
    }

    // While watching, each report and each change is one line of JSON.
    void show_report() const {
        if (!options_.json)
            print_table(report_, std::cout);
        else if (options_.watch)
            std::cout << to_json(report_, options_.vsd).dump() << '\n';
        else
            print_json(report_, options_.vsd, std::cout);
        std::cout << std::flush;
    }

    void show_change(const Json &change) const {
        if (options_.json)
            std::cout << change.dump() << '\n';
        else
            std::cout << clock_text() << ' ' << line_of(change, report_) << '\n';
    }

    static std::string clock_text() {
        const std::time_t now = std::time(nullptr);
        char text[16];
        std::strftime(text, sizeof text, "%H:%M:%S", std::localtime(&now));
        return text;
    }

    [[nodiscard]] Status status() const {
        if (!missing_.empty())
            return kMissing;
        if (options_.remove && !options_.yes && !report_.rows.empty()) {
            std::cerr << "bridge-inspect: nothing was removed; with --yes these are\n";
            return kUsage;
        }
        return report_.table == kFindings && !report_.rows.empty() ? kFaults : kFine;
    }

    const Options &options_;
    Look look_;
    Report report_;
    Lines missing_;
};

struct Bounds {
    unsigned min;
    unsigned max;
};
constexpr Bounds kNone{1, 0}; // the command has no such selection
constexpr Bounds kVlans{BRI_VID_MIN, BRI_VID_MAX};
constexpr Bounds kPorts{1, BRI_PORT_SLOTS - 1};

struct Command {
    const char *name;
    const char *help;
    Bounds vlans;
    Bounds ports;
    Report (*look)(int32_t vsd, const Selection &selection);
};

constexpr Command kTableCommands[] = {
    {"ports", "switch ports; --vlan shows the members of these VLANs", kVlans, kPorts, look_at_ports},
    {"vlans", "VLANs; --port shows those that have one of these ports as a member", kVlans, kPorts, look_at_vlans},
    {"groups", "VLAN groups; --vlan shows those that hold one of these VLANs", kVlans, kNone, look_at_groups},
    {"protocols", "bridge protocols: which are enabled, and what blocks each", kNone, kNone, look_at_protocols},
    {"exclusions",
     "features that exclude others on an interface",
     kNone,
     {0, BRI_EXCLUSION_IFX_MAX},
     look_at_exclusions},
};

std::optional<std::set<unsigned>> choice(const std::optional<std::string> &text, Bounds bounds) {
    if (!text)
        return std::nullopt;
    const wire::Ids ids = wire::parse_ids(*text, bounds.min, bounds.max);
    return std::set<unsigned>(ids.begin(), ids.end());
}

Look look_for(const Command &command, const Options &options) {
    const Selection selection{choice(options.vlans, command.vlans), choice(options.ports, command.ports)};
    return [&options, &command, selection](Lines & /*missing*/) { return command.look(options.vsd, selection); };
}

void add_choice(CLI::App &sub, const char *option, std::optional<std::string> &text, Bounds bounds) {
    if (bounds.min <= bounds.max)
        sub.add_option(option, text, "ids to show, as in 1,5-10");
}

// The subcommand that was given decides.
Look chosen_look(const CLI::App &app, const Options &options) {
    if (app.get_subcommands().empty())
        throw std::invalid_argument("a command is missing; --help lists them");
    for (const Command &command : kTableCommands)
        if (app.got_subcommand(command.name))
            return look_for(command, options);
    if (options.remove && options.watch)
        throw std::invalid_argument("--remove is done once, not watched");
    if (options.remove)
        return [&options](Lines &failures) { return remove_segments(options.vsd, options.yes, failures); };
    if (app.got_subcommand("segments"))
        return [&options](Lines &missing) { return look_at_segments(options.vsd, missing); };
    auto checker = std::make_shared<Checker>(options.vsd);
    return [checker](Lines &missing) { return checker->look(missing); };
}

void describe(CLI::App &app, Options &options) {
    app.require_subcommand(0, 1); // that there is one is seen to below: a word that is none is then named
    app.fallthrough();
    app.add_option("--vsd", options.named_vsd, "virtual switch device (default: VSDID of the environment, or 0)");
    app.add_flag("--json", options.json, "JSON instead of a table; one line each while watching");
    app.add_flag("--watch", options.watch, "go on and show what changes");
    app.add_option("--interval", options.interval, "seconds between looks while watching (default: 1)")
        ->check(CLI::Range(0.01, 86400.0));
    app.add_option("--looks", options.looks, "end after so many looks while watching (default: never)");
    for (const Command &command : kTableCommands) {
        CLI::App *sub = app.add_subcommand(command.name, command.help);
        add_choice(*sub, "--vlan", options.vlans, command.vlans);
        add_choice(*sub, "--port", options.ports, command.ports);
    }
    CLI::App *segments = app.add_subcommand("segments", "the shared-memory segments and their locks");
    segments->add_flag("--remove", options.remove, "remove them all, and their locks; needs --yes");
    segments->add_flag("--yes", options.yes, "do remove them")->needs("--remove");
    app.add_subcommand("check", "broken invariants of the tables; status 1 when there are any");
    app.footer("Exit status: 0 fine, 1 check found something, 2 a segment is missing or cannot be read, 64 bad usage.\n"
               "Nothing is ever created, written or locked; only segments --remove --yes removes.");
}

int view(const CLI::App &app, Options &options) {
    try {
        options.vsd = options.named_vsd ? *options.named_vsd : wire::vsd_of_environment();
        return Viewer(options, chosen_look(app, options)).run();
    } catch (const Unreadable &error) {
        return tools::fail(app.get_name().c_str(), kMissing, error);
    }
}

constexpr tools::Program<Options> kProgram = {
    "bridge-inspect", "A read-only look into the shared tables of the bridge service.", describe, view, kBroken};

} // namespace

int main(int argc, char **argv) {
    return tools::main_of(kProgram, argc, argv);
}
