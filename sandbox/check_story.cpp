#include "sandbox/check_story.h"

#include "sandbox/command.h"
#include "sandbox/parse.h"
#include "sandbox/places.h"
#include "sandbox/script.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <thread>

namespace sandbox {

namespace {

// Eight ports, unless the author has a switch of their own: two carry all VLANs, two their native one alone.
constexpr const char *kDefaultSwitch =
    "vlan create 10,20, port add 1 trunk 1, port add 2 trunk 1, port add 3 trunk 1, port add 4 trunk 1, "
    "port add 5 access 10, port add 6 access 10, port add 7 access 10, port add 8 access 10, "
    "port allow 1 1-4094, port allow 2 1-4094";
// Ports that come and go; a story's own switch does not have them.
constexpr unsigned kWorkPort = 61;
constexpr unsigned kNewPort = 62;
constexpr const char *kDaemonOutput = "daemon.log";
constexpr size_t kLogLines = 40;

// Seconds of the world.
constexpr double kComing = 30;        // for what must come
constexpr double kQuiet = 3;          // for what must not come
constexpr double kRest = 2;           // by which it has done what it does by itself
constexpr double kSwitchPatience = 3; // of the server with a question
constexpr double kStep = 0.5;

constexpr double kBusy = 0.5; // of the time: who waits for something uses next to nothing

std::string names_text(const std::set<std::string> &names) {
    return join({names.begin(), names.end()}, 0, ", ");
}

Words lines_of(std::string_view script) {
    Words lines;
    for (size_t end = 0; end != std::string_view::npos; script.remove_prefix(std::min(script.size(), end + 2)))
        lines.emplace_back(script.substr(0, end = script.find(", ")));
    return lines;
}

std::string seconds_text(double time) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2g s", time);
    return text;
}

class Player {
  public:
    Player(const Story &story, const CheckOptions &options, Habits &habits)
        : story_(story), scale_(options.time_scale), habits_(habits), stage_({.time_scale = options.time_scale,
                                                                              .log = Log::kRecords,
                                                                              .command = options.daemon,
                                                                              .daemon_output = kDaemonOutput}) {
        Script script;
        if (options.setup.empty())
            for (const std::string &line : lines_of(kDefaultSwitch))
                script.add(line);
        else
            script.add_file(find_script(options.setup));
        while (const std::optional<std::string> line = script.next())
            must(*line);
    }

    Played play() {
        for (const std::string &line : lines_of(story_.script)) {
            if (is_told_to_end())
                throw std::runtime_error("interrupted");
            line_ = line;
            run_line(line_);
            if (has_ended())
                return {std::move(points_), last_words()};
        }
        say("stays alive", Judgement::kRight);
        return {std::move(points_), last_words()};
    }

  private:
    using Row = std::pair<const char *, void (Player::*)(const Words &words)>;
    static const Row kRows[];

    void run_line(const std::string &line);
    void must_register(const char *point);

    // The lines of stories; see check_story.h.
    void begin(const Words &words);
    void learn(const Words &words);
    void again(const Words &words);
    void do_something(const Words &words);
    void acts(const Words &words);
    void asks(const Words &words);
    void silent(const Words &words);
    void answers(const Words &words);
    void addresses(const Words &words);
    void idle(const Words &words);
    void stops(const Words &words);
    void try_command(const Words &words);

    // What is missing of a daemon that has ended is not told beside that.
    void say(const std::string &name, Judgement verdict, const std::string &why = "") {
        if (verdict == Judgement::kWrong && has_ended())
            return;
        points_.push_back({story_.name, name, verdict, why});
    }
    void judge(const std::string &name, bool right, const std::string &why = "") {
        say(name, right ? Judgement::kRight : Judgement::kWrong, why);
    }
    bool has_ended() {
        if (const std::optional<int> status = stage_.daemon_ended()) {
            points_.push_back({story_.name, "stays alive", Judgement::kWrong,
                               "ended with status " + std::to_string(*status) + " at \"" + line_ + "\""});
            over_ = true;
        }
        return over_;
    }
    // Whether a command goes well, and why not.
    bool well(const std::string &command, std::string &why) {
        try {
            stage_.run(command);
            return true;
        } catch (const std::runtime_error &error) {
            why = error.what();
            return false;
        }
    }
    void must(const std::string &command) {
        std::string why;
        if (!well(command, why))
            throw std::runtime_error(command + ": " + why);
    }
    void try_to(const std::string &command) {
        std::string ignored;
        well(command, ignored);
    }
    void sleep(double time) const { std::this_thread::sleep_for(std::chrono::duration<double>(time / scale_)); }
    [[nodiscard]] size_t place() { return stage_.world().lines(Log::kRecords).size(); }
    [[nodiscard]] std::vector<Observed> seen() { return observed_since(stage_.world(), mark_); }
    // The types of the requests since the mark by which it works.
    [[nodiscard]] std::set<std::string> work() {
        std::set<std::string> types;
        for (const Observed &message : seen())
            if (is_work(message))
                types.insert(message.type);
        return types;
    }
    // Until nothing has come from it or gone to it for that long; not much longer with one that never rests.
    void settle(double quiet) {
        size_t before = 0;
        double passed = 0;
        do {
            before = seen().size();
            sleep(quiet);
            passed += quiet;
        } while (seen().size() != before && passed < 3 * quiet);
    }
    // Looks again and again, until there is something or the time has passed.
    template <class Look> auto look_for(double patience, Look &&look) {
        auto found = look();
        for (double passed = 0; !found && passed < patience; passed += kStep) {
            sleep(kStep);
            found = look();
        }
        return found;
    }
    [[nodiscard]] std::vector<unsigned> ports() {
        std::vector<unsigned> all;
        const Fields answer = Fields::parse(stage_.world().run("port show", true).text);
        for (const Fields &port : answer["ports"])
            all.push_back(port["ifx"]);
        return all;
    }
    [[nodiscard]] std::string first_client() {
        const Fields clients = Fields::parse(stage_.world().run("clients", true).text)["clients"];
        return clients.empty() ? "0" : clients[0]["id"].dump();
    }
    [[nodiscard]] std::string last_words();

    const Story &story_;
    double scale_;
    Habits &habits_;
    Stage stage_;
    std::vector<Point> points_;
    size_t mark_ = 0;      // the line of the trace behind which something is looked for
    bool created_ = false; // the first VLAN of what it should act on
    std::string line_;     // of the story, that is being played
    bool over_ = false;
};

const Player::Row Player::kRows[] = {
    {"begin", &Player::begin},     {"learn", &Player::learn},     {"again", &Player::again},
    {"do", &Player::do_something}, {"acts", &Player::acts},       {"asks", &Player::asks},
    {"silent", &Player::silent},   {"answers", &Player::answers}, {"addresses", &Player::addresses},
    {"idle", &Player::idle},       {"stops", &Player::stops},     {"try", &Player::try_command},
};

void Player::run_line(const std::string &line) {
    const Words words = split(line);
    for (const auto &[word, play_it] : kRows)
        if (words[0] == word)
            return (this->*play_it)(Words(words.begin() + 1, words.end()));
    std::string command = line;
    if (const size_t client = command.find('$'); client != std::string::npos)
        command.replace(client, 1, first_client());
    must(command);
}

void Player::must_register(const char *point) {
    std::string why;
    const bool registered = well("wait clients registered >= 1 within " + std::to_string(kComing), why);
    judge(point, registered, why);
    over_ = over_ || !registered;
    settle(2 * kStep);
}

void Player::begin(const Words &) {
    stage_.start_daemon({});
    must_register("registers");
    mark_ = place();
}

void Player::learn(const Words &words) {
    mark_ = 0;
    settle(kRest);
    habits_.at_start = work();
    do_something(words);
    settle(kRest);
    habits_.at_work = work();
    for (const auto &[name, types] : {std::pair("sends something at its start", &habits_.at_start),
                                      std::pair("acts on what happens", &habits_.at_work)})
        say(name, types->empty() ? Judgement::kOpen : Judgement::kRight,
            types->empty() ? "it asks for nothing" : names_text(*types));
    const unsigned vid = parse_number(words.at(0));
    for (const Observed &message : seen())
        habits_.names_new = habits_.names_new || (is_work(message) && speaks_of(message, vid, kWorkPort));
}

void Player::again(const Words &) {
    must_register("registers again");
}

void Player::do_something(const Words &words) {
    mark_ = place();
    const unsigned vid = parse_number(words.at(0));
    const std::string first = std::to_string(vid);
    const std::string last = std::to_string(vid + 2);
    const std::string port = std::to_string(kWorkPort);
    const std::vector<unsigned> all = ports();
    std::string why;
    created_ = well("vlan create " + first, why);
    try_to("vlan create " + std::to_string(vid + 1) + "-" + last);
    try_to("port add " + port + " trunk 1");
    for (const unsigned ifx : all)
        for (const std::string &vlan : {first, std::string("10")})
            try_to("traffic flood 4 " + vlan + " " + std::to_string(ifx));
    sleep(kStep);
    for (const char *command : {"port down ", "port up "}) {
        for (const unsigned ifx : all)
            try_to(command + std::to_string(ifx));
        sleep(kStep);
    }
    try_to("vlan delete " + last);
    try_to("port del " + port);
}

void Player::acts(const Words &) {
    if (habits_.at_work.empty())
        return say("acts as before", Judgement::kOpen, "it never asks for anything then");
    const bool acted = look_for(created_ ? kComing : kQuiet, [&] {
        const std::set<std::string> now = work();
        return std::any_of(now.begin(), now.end(),
                           [&](const std::string &type) { return habits_.at_work.count(type) != 0; });
    });
    if (!acted && !created_)
        return say("acts as before", Judgement::kOpen, "no VLAN came, as it was asked and did not agree");
    judge("acts as before", acted, acted ? names_text(work()) : "it no longer sends " + names_text(habits_.at_work));
}

void Player::asks(const Words &words) {
    const unsigned vid = parse_number(words.at(0));
    const auto sign = [&]() -> std::optional<std::string> {
        for (const Observed &message : seen()) {
            if (message.request && message.type == "BRIDGE_EVENT_ORI_DATA_REQUEST")
                return "sends " + message.type;
            if (is_work(message) && speaks_of(message, vid, kNewPort))
                return "sends " + message.type + " about what came meanwhile";
        }
        return std::nullopt;
    };
    const std::optional<std::string> found = look_for(habits_.names_new ? kComing : kQuiet, sign);
    if (!found && !habits_.names_new)
        say("asks for origin data", Judgement::kOpen, "it asks the server nothing, and for nothing about what is new");
    else
        judge("asks for origin data", found.has_value(),
              found.value_or("it does nothing about VLAN " + words[0] + " and port " + std::to_string(kNewPort) +
                             ", which came while it did not listen"));
    settle(kStep);
}

void Player::silent(const Words &words) {
    sleep(kQuiet);
    const std::set<std::string> sent = work();
    if (sent.empty() && habits_.at_start.empty() && habits_.at_work.empty())
        say(join(words), Judgement::kOpen, "it sends nothing as a master either");
    else
        judge(join(words), sent.empty(), sent.empty() ? "" : "it sends " + names_text(sent));
}

// What is wrong with its answers since the mark, if anything; the slowest one.
struct Judged {
    size_t questions = 0;
    double slowest = 0;
    std::string wrong;
};
Judged judge_answers(const std::vector<Observed> &messages) {
    Judged judged;
    std::map<std::string, std::vector<double>> asked;
    std::map<std::string, std::vector<double>> answered;
    for (const Observed &message : messages)
        if (is_question(message))
            asked[message.type].push_back(message.time);
    for (const Observed &message : messages)
        for (const auto &[type, times] : asked)
            if (is_answer(message, type))
                answered[type].push_back(message.time);
    for (const auto &[type, times] : asked) {
        judged.questions += times.size();
        const std::vector<double> &answers = answered[type];
        if (answers.size() != times.size())
            judged.wrong = type + ": " + std::to_string(times.size()) + " questions, " +
                           std::to_string(answers.size()) + " answers";
        for (size_t i = 0; i < std::min(times.size(), answers.size()); ++i)
            judged.slowest = std::max(judged.slowest, answers[i] - times[i]);
    }
    if (judged.wrong.empty() && judged.slowest > kSwitchPatience)
        judged.wrong = "an answer after " + seconds_text(judged.slowest) + "; the switch waits for " +
                       seconds_text(kSwitchPatience);
    return judged;
}

// Twice when something is wrong the first time: the machine may have been busy.
void Player::answers(const Words &words) {
    const unsigned vid = parse_number(words.at(0));
    const std::string port = std::to_string(ports().at(0));
    Judged judged;
    for (unsigned attempt = 0; attempt < 2; ++attempt) {
        mark_ = place();
        const unsigned first = vid + 10 * attempt;
        try_to("vlan create " + std::to_string(first));
        try_to("vlan create " + std::to_string(first + 1) + "-" + std::to_string(first + 2));
        try_to("port mode " + port + (attempt == 0 ? " hybrid ask" : " trunk ask"));
        judged = judge_answers(seen());
        if (judged.wrong.empty())
            break;
        sleep(kSwitchPatience); // for what is late
        judged = judge_answers(seen());
    }
    if (judged.questions == 0)
        say("answers in time", Judgement::kOpen, "it has registered none of the questions");
    else
        judge("answers in time", judged.wrong.empty(),
              judged.wrong.empty()
                  ? std::to_string(judged.questions) + " answers within " + seconds_text(judged.slowest)
                  : judged.wrong);
}

void Player::addresses(const Words &) {
    static const std::set<std::string> own = {"MAC_EVENT_NOTIFY_ADDR", "MAC_EVENT_NOTIFY_NONDYN",
                                              "MVLAN_EVENT_NOTIFY_ENTRY"};
    const auto gives = [&](const std::set<std::string> &types) {
        return std::any_of(types.begin(), types.end(), [](const std::string &type) { return own.count(type) != 0; });
    };
    const char *name = "gives its addresses again";
    if (!gives(habits_.at_start))
        return say(name, Judgement::kOpen, "it gives the kernel none at its start");
    judge(name, look_for(kComing, [&] { return gives(work()); }));
}

void Player::idle(const Words &words) {
    const std::chrono::duration<double> time(parse_number(words.at(0)) / scale_);
    const std::optional<double> busy = busy_part(stage_.daemon(), time);
    if (!busy)
        return say("does not spin", Judgement::kOpen, "this kernel does not count its threads' time");
    judge("does not spin", *busy < kBusy,
          "busy in " + std::to_string(static_cast<int>(100 * *busy)) + " % of the time");
}

void Player::stops(const Words &) {
    const std::optional<int> status = stage_.end_daemon();
    const bool killed = status && *status > 128 && *status != 128 + SIGTERM;
    judge("stops on SIGTERM", status && !killed, status ? "status " + std::to_string(*status) : "it does not");
    over_ = true;
}

void Player::try_command(const Words &words) {
    try_to(join(words));
}

std::string Player::last_words() {
    World &world = stage_.world();
    return "what happened last:\n" + last_of(world.lines(Log::kLines), kLogLines) + "the daemon's output:\n" +
           last_of(read_lines(world.directory() + "/" + kDaemonOutput), kLogLines);
}

} // namespace

Fields point_json(const Point &point) {
    static constexpr const char *kJudgements[] = {"right", "wrong", "not judged"};
    return {{"story", point.story},
            {"point", point.name},
            {"verdict", kJudgements[static_cast<size_t>(point.verdict)]},
            {"why", point.why}};
}

Played play(const Story &story, const CheckOptions &options, Habits &habits) {
    return Player(story, options, habits).play();
}

} // namespace sandbox
