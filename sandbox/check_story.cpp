#include "sandbox/check_story.h"

#include "sandbox/command.h"
#include "sandbox/parse.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <thread>

namespace sandbox {

namespace {

// Ports that come and go; a story's own switch does not have them.
constexpr unsigned kWorkPort = 61;
constexpr unsigned kNewPort = 62;
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

// A story that is being played, and what its lines have in common.
class Player {
  public:
    Player(const Story &story, const CheckOptions &options, Habits &known)
        : scale(options.time_scale), habits(known), stage(options), story_(story) {
        Script script;
        script.add_file(find_script(options.setup));
        while (const std::optional<std::string> line = script.next())
            must(*line);
    }

    Played play() {
        for (const std::string &line : lines_of(story_.script)) {
            fail_if(is_told_to_end(), "interrupted");
            line_ = line;
            run_line(line_);
            if (has_ended())
                return {std::move(points_), last_words()};
        }
        say("stays alive", Judgement::kRight);
        return {std::move(points_), last_words()};
    }

    // What is missing of a daemon that has ended is not told beside that.
    void say(const std::string &name, Judgement verdict, const std::string &why = "") {
        if (verdict != Judgement::kWrong || !has_ended())
            points_.push_back({story_.name, name, verdict, why});
    }
    void judge(const std::string &name, bool right, const std::string &why = "") {
        say(name, right ? Judgement::kRight : Judgement::kWrong, why);
    }
    // Runs a command: why it has failed, if it has.
    std::optional<std::string> attempt(const std::string &command) {
        try {
            stage.run(command);
            return std::nullopt;
        } catch (const std::runtime_error &error) {
            return error.what();
        }
    }
    // What it must do within the usual time, or else its story is over.
    void must_register(const char *point) {
        const auto why = attempt("wait clients registered >= 1 within " + std::to_string(kComing));
        judge(point, !why, why.value_or(""));
        over = over || why;
        settle(2 * kStep);
    }
    void sleep(double time) const { std::this_thread::sleep_for(std::chrono::duration<double>(time / scale)); }
    void look_from_here() { mark = stage.world.lines(Log::kRecords).size(); }
    [[nodiscard]] std::vector<Observed> seen() { return observed_since(stage.world, mark); }
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
    // The numbers of all ports, or of all clients.
    [[nodiscard]] Words numbers(const char *command, const char *list, const char *number) {
        Words all;
        const Fields answer = Fields::parse(stage.world.run(command, true).text);
        for (const Fields &row : answer[list])
            all.push_back(row[number].dump());
        return all;
    }
    [[nodiscard]] Words ports() { return numbers("port show", "ports", "ifx"); }

    double scale;
    Habits &habits;
    Stage stage;
    size_t mark = 0;      // the line of the trace behind which something is looked for
    bool created = false; // the first VLAN of what it should act on
    bool over = false;

  private:
    void run_line(const std::string &line);
    void must(const std::string &command) {
        if (const auto why = attempt(command))
            throw std::runtime_error(command + ": " + *why);
    }
    bool has_ended() {
        if (const std::optional<int> status = stage.daemon_ended()) {
            points_.push_back({story_.name, "stays alive", Judgement::kWrong,
                               "ended with status " + std::to_string(*status) + " at \"" + line_ + "\""});
            over = true;
        }
        return over;
    }
    [[nodiscard]] std::string last_words() {
        const World &world = stage.world;
        return "what happened last:\n" + last_of(world.lines(Log::kLines), kLogLines) + "the daemon's output:\n" +
               last_of(read_lines(world.directory() + "/" + kDaemonOutput), kLogLines);
    }

    const Story &story_;
    std::vector<Point> points_;
    std::string line_; // of the story, that is being played
};

// --- the lines of stories; see check_story.h ---

void do_something(Player &player, const Words &words) {
    player.look_from_here();
    const unsigned vid = parse_number(words.at(0));
    const std::string last = std::to_string(vid + 2);
    const std::string port = std::to_string(kWorkPort);
    const Words ports = player.ports();
    player.created = !player.attempt("vlan create " + words[0]);
    player.attempt("vlan create " + std::to_string(vid + 1) + "-" + last);
    player.attempt("port add " + port + " trunk 1");
    for (const std::string &ifx : ports)
        for (const std::string &vlan : {words[0], std::string("10")})
            player.attempt("traffic flood 4 " + vlan + " " + ifx);
    player.sleep(kStep);
    for (const char *command : {"port down ", "port up "}) {
        for (const std::string &ifx : ports)
            player.attempt(command + ifx);
        player.sleep(kStep);
    }
    player.attempt("vlan delete " + last);
    player.attempt("port del " + port);
}

void begin(Player &player, const Words &) {
    player.stage.start_daemon({});
    player.must_register("registers");
    player.look_from_here();
}

void learn(Player &player, const Words &words) {
    Habits &habits = player.habits;
    player.mark = 0;
    player.settle(kRest);
    habits.at_start = player.work();
    do_something(player, words);
    player.settle(kRest);
    habits.at_work = player.work();
    for (const auto &[name, types] : {std::pair("sends something at its start", &habits.at_start),
                                      std::pair("acts on what happens", &habits.at_work)})
        player.say(name, types->empty() ? Judgement::kOpen : Judgement::kRight,
                   types->empty() ? "it asks for nothing" : names_text(*types));
    const unsigned vid = parse_number(words.at(0));
    for (const Observed &message : player.seen())
        habits.names_new = habits.names_new || (is_work(message) && speaks_of(message, vid, kWorkPort));
}

void again(Player &player, const Words &) {
    player.must_register("registers again");
}

bool share(const std::set<std::string> &some, const std::set<std::string> &others) {
    return std::any_of(some.begin(), some.end(), [&](const std::string &name) { return others.count(name) != 0; });
}

void acts(Player &player, const Words &) {
    constexpr const char *name = "acts as before";
    const std::set<std::string> &habits = player.habits.at_work;
    if (habits.empty())
        return player.say(name, Judgement::kOpen, "it never asks for anything then");
    const bool acted = player.look_for(player.created ? kComing : kQuiet, [&] { return share(player.work(), habits); });
    if (!acted && !player.created)
        return player.say(name, Judgement::kOpen, "no VLAN came, as it was asked and did not agree");
    player.judge(name, acted, acted ? names_text(player.work()) : "it no longer sends " + names_text(habits));
}

void asks(Player &player, const Words &words) {
    constexpr const char *name = "asks for origin data";
    const unsigned vid = parse_number(words.at(0));
    const bool names_new = player.habits.names_new;
    const auto found = player.look_for(names_new ? kComing : kQuiet, [&]() -> std::optional<std::string> {
        for (const Observed &message : player.seen()) {
            if (message.request && message.type == "BRIDGE_EVENT_ORI_DATA_REQUEST")
                return "sends " + message.type;
            if (is_work(message) && speaks_of(message, vid, kNewPort))
                return "sends " + message.type + " about what came meanwhile";
        }
        return std::nullopt;
    });
    if (!found && !names_new)
        player.say(name, Judgement::kOpen, "it asks the server nothing, and for nothing about what is new");
    else
        player.judge(name, found.has_value(),
                     found.value_or("it does nothing about VLAN " + words[0] + " and port " + std::to_string(kNewPort) +
                                    ", which came while it did not listen"));
    player.settle(kStep);
}

void silent(Player &player, const Words &words) {
    player.sleep(kQuiet);
    const std::set<std::string> sent = player.work();
    if (sent.empty() && player.habits.at_start.empty() && player.habits.at_work.empty())
        player.say(join(words), Judgement::kOpen, "it sends nothing as a master either");
    else
        player.judge(join(words), sent.empty(), sent.empty() ? "" : "it sends " + names_text(sent));
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
void answers(Player &player, const Words &words) {
    constexpr const char *name = "answers in time";
    const std::string port = player.ports().at(0);
    Judged judged;
    for (unsigned attempt = 0; attempt < 2; ++attempt) {
        player.look_from_here();
        const unsigned first = parse_number(words.at(0)) + 10 * attempt;
        player.attempt("vlan create " + std::to_string(first));
        player.attempt("vlan create " + std::to_string(first + 1) + "-" + std::to_string(first + 2));
        player.attempt("port mode " + port + (attempt == 0 ? " hybrid ask" : " trunk ask"));
        judged = judge_answers(player.seen());
        if (judged.wrong.empty())
            break;
        player.sleep(kSwitchPatience); // for what is late
        judged = judge_answers(player.seen());
    }
    if (judged.questions == 0)
        return player.say(name, Judgement::kOpen, "it has registered none of the questions");
    const std::string well = std::to_string(judged.questions) + " answers within " + seconds_text(judged.slowest);
    player.judge(name, judged.wrong.empty(), judged.wrong.empty() ? well : judged.wrong);
}

void addresses(Player &player, const Words &) {
    static const std::set<std::string> own = {"MAC_EVENT_NOTIFY_ADDR", "MAC_EVENT_NOTIFY_NONDYN",
                                              "MVLAN_EVENT_NOTIFY_ENTRY"};
    constexpr const char *name = "gives its addresses again";
    if (!share(own, player.habits.at_start))
        return player.say(name, Judgement::kOpen, "it gives the kernel none at its start");
    player.judge(name, player.look_for(kComing, [&] { return share(own, player.work()); }));
}

void idle(Player &player, const Words &words) {
    constexpr const char *name = "does not spin";
    const std::chrono::duration<double> time(parse_number(words.at(0)) / player.scale);
    const std::optional<double> busy = busy_part(player.stage.daemon(), time);
    if (!busy)
        return player.say(name, Judgement::kOpen,
                          "the kernel does not count its threads' time, or others left it none");
    player.judge(name, *busy < kBusy, "busy in " + std::to_string(static_cast<int>(100 * *busy)) + " % of the time");
}

void stops(Player &player, const Words &) {
    const std::optional<int> status = player.stage.end_daemon();
    const bool killed = status && *status > 128 && *status != 128 + SIGTERM;
    player.judge("stops on SIGTERM", status && !killed, status ? "status " + std::to_string(*status) : "it does not");
    player.over = true;
}

constexpr struct {
    const char *word;
    void (*play)(Player &player, const Words &words);
} kLines[] = {{"begin", begin},         {"learn", learn}, {"again", again},   {"do", do_something},
              {"acts", acts},           {"asks", asks},   {"silent", silent}, {"answers", answers},
              {"addresses", addresses}, {"idle", idle},   {"stops", stops}};

void Player::run_line(const std::string &line) {
    const Words words = split(line);
    for (const auto &row : kLines)
        if (words[0] == row.word)
            return row.play(*this, Words(words.begin() + 1, words.end()));
    std::string command = line;
    if (const size_t client = command.find('$'); client != std::string::npos) {
        const Words clients = numbers("clients", "clients", "id");
        command.replace(client, 1, clients.empty() ? "0" : clients[0]);
    }
    must(command);
}

} // namespace

const char *verdict_text(Judgement verdict) {
    static constexpr const char *kVerdicts[] = {"right", "wrong", "not judged"};
    return kVerdicts[static_cast<size_t>(verdict)];
}

Fields point_json(const Point &point) {
    return {
        {"story", point.story}, {"point", point.name}, {"verdict", verdict_text(point.verdict)}, {"why", point.why}};
}

Played play(const Story &story, const CheckOptions &options, Habits &habits) {
    return Player(story, options, habits).play();
}

} // namespace sandbox
