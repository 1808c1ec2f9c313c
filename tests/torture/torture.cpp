#include "torture/torture.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <vector>

#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include "support/lab.h"
#include "torture/shim.h"
#include "torture/world.h"

// The stack counts as the library is shipped: optimised, and without the sanitizers.
#if defined(__SANITIZE_ADDRESS__) || !defined(__OPTIMIZE__)
#define LAB_OWN_STACK false
#else
#define LAB_OWN_STACK true
#endif

namespace torture {
namespace {

namespace fs = std::filesystem;
using shim::Mode;
using shim::Plan;

constexpr size_t kCanary = 64;
constexpr char kBlank = '#';

std::map<std::string, size_t> stack_needs;
size_t all_runs = 0;

// --- Outputs ---

char arena[80 * 1024];
size_t arena_used;
std::vector<std::pair<size_t, size_t>> canaries; // from, to

void clear_arena() {
    std::memset(arena, kBlank, sizeof arena);
    arena_used = kCanary;
    canaries.clear();
    canaries.reserve(16);
    canaries.emplace_back(0, kCanary);
}

bool canaries_live() {
    return std::all_of(canaries.begin(), canaries.end(), [](const auto &zone) {
        return std::all_of(arena + zone.first, arena + zone.second,
                           [](char byte) { return byte == kBlank; });
    });
}

// --- The stack: of the size promised to all, with a page below that faults ---

constexpr size_t kStackSize = 256 * 1024;
constexpr unsigned char kPaint = 0xa5;

long (*call_to_make)();
long call_result;
int call_errno;

void make_call() {
    errno = 0;
    call_result = call_to_make();
    call_errno = errno;
}

// Returns how much the call took.
size_t call_on_own_stack() {
    static auto *const pages = static_cast<unsigned char *>(::mmap(
        nullptr, kStackSize + 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    static unsigned char *const stack = pages + 4096;
    ::mprotect(pages, 4096, PROT_NONE);
    std::memset(stack, kPaint, kStackSize);
    static ucontext_t here, there;
    ::getcontext(&there);
    there.uc_stack.ss_sp = stack;
    there.uc_stack.ss_size = kStackSize;
    there.uc_link = &here;
    ::makecontext(&there, make_call, 0);
    ::swapcontext(&here, &there);
    auto painted = [](unsigned char byte) { return byte == kPaint; };
    return static_cast<size_t>(stack + kStackSize -
                               std::find_if_not(stack, stack + kStackSize, painted));
}

// --- One run ---

struct Outcome {
    long result;
    int error;
    std::string outputs;
    std::string files;
    std::vector<std::string> log;
};

// Where two outcomes differ for a caller, to whom errno counts on failure only; "" if nowhere.
std::string difference(const Outcome &one, const Outcome &other) {
    if (one.result != other.result) {
        return "result " + std::to_string(one.result);
    }
    if (one.outputs != other.outputs) {
        return "outputs " + one.outputs;
    }
    if (one.log != other.log) {
        return "log";
    }
    auto [line, end] =
        std::mismatch(one.files.begin(), one.files.end(), other.files.begin(), other.files.end());
    return line == one.files.end() && end == other.files.end()
               ? ""
               : "files near " + std::string(one.files.begin() +
                                                 std::max<long>(line - one.files.begin() - 40, 0),
                                             std::min(line + 40, one.files.end()));
}

std::string files_below(const char *folder) {
    std::map<std::string, std::string> files;
    for (const auto &entry : fs::recursive_directory_iterator(folder)) {
        const bool varies = entry.path() == "/tmp/pid";
        files[entry.path()] = varies                    ? "a pid"
                              : entry.is_symlink()      ? "-> " + fs::read_symlink(entry).string()
                              : entry.is_regular_file() ? lab::get(entry.path())
                                                        : "";
    }
    std::string text;
    for (const auto &[path, content] : files) {
        text += path + ": " + content + "\n";
    }
    return text;
}

Outcome run(const Scenario &scenario, const Plan &plan, shim::Report &report) {
    ++all_runs;
    build_world();
    clear_arena();
    if (scenario.prepare != nullptr) {
        scenario.prepare();
    }
    lab::take_log();
    size_t stack = 0;
    {
        lab::Census census;
        call_to_make = scenario.call;
        lab::printed([&] { // into files that count as the world's
            shim::arm(plan);
            LAB_OWN_STACK ? void(stack = call_on_own_stack()) : make_call();
            report = shim::disarm();
        });
    }
    Outcome outcome = {call_result, call_errno, std::string(arena, arena_used), "", {}};
    EXPECT_TRUE(canaries_live()) << "written outside of a buffer";
    EXPECT_EQ(report.held, 0) << "memory, streams or folders not given back";
    clean_up();
    outcome.files = files_below("/tmp") + files_below("/var");
    outcome.log = lab::take_log();
    std::erase_if(outcome.log, [](const auto &line) { return line.starts_with("debug: "); });
    size_t &need = stack_needs[scenario.name];
    need = std::max(need, stack);
    EXPECT_LE(stack, scenario.stack_kb * 1024) << "stack";
    return outcome;
}

// --- The verdict ---

// Whether one word of the scenario's, without the call's name, allows the outcome.
bool allows(const std::string &word, const Outcome &usual, const Outcome &seen,
            const shim::Report &report) {
    if (word == "=") {
        return seen.result == usual.result && seen.outputs == usual.outputs;
    }
    if (word == "errno") {
        return report.errors.contains(static_cast<int>(seen.result));
    }
    return std::stol(word) == seen.result &&
           (word.back() != '!' || report.errors.contains(seen.error));
}

bool is_logged(const Outcome &seen, const shim::Report &report) {
    return std::any_of(seen.log.begin(), seen.log.end(), [&](const std::string &line) {
        return line.starts_with("err: ") &&
               std::any_of(report.errors.begin(), report.errors.end(), [&](int error) {
                   return line.find(std::strerror(error)) != std::string::npos;
               });
    });
}

bool keeps_word(const Scenario &scenario, const Outcome &usual, const Outcome &seen,
                const shim::Report &report) {
    std::vector<std::string> general, named;
    std::istringstream words(scenario.on_failure);
    for (std::string word; words >> word;) {
        size_t colon = word.find(':');
        if (colon == std::string::npos) {
            general.push_back(word);
        } else if (report.failed.contains(word.substr(0, colon))) {
            named.push_back(word.substr(colon + 1));
        }
    }
    if (report.failed.contains("close")) {
        named.emplace_back("=");
    }
    const bool several = report.failed.size() > 1;
    if (several || named.empty()) {
        named.insert(named.end(), general.begin(), general.end());
    }
    const bool has_to_log = std::erase(named, "logged") != 0 && !several;
    std::erase(named, "once");
    const bool allowed = std::any_of(named.begin(), named.end(), [&](const std::string &word) {
        return allows(word, usual, seen, report);
    });
    return allowed && (!has_to_log || seen.result == usual.result || is_logged(seen, report));
}

std::string describe(const Scenario &scenario, const Plan &plan, const shim::Report &report,
                     const Outcome &seen) {
    static constexpr const char *kModes[] = {"counted", "fails", "and all after it fail",
                                             "interrupted", "short"};
    std::ostringstream text;
    text << scenario.name << ", call " << plan.at << " of (";
    size_t first = plan.at < 8 ? 0 : plan.at - 8; // not all that a walk over /proc makes
    for (size_t i = first; i < report.calls.size() && i < first + 16; ++i) {
        text << " " << report.calls[i];
    }
    text << " ) " << kModes[static_cast<int>(plan.mode)] << ", errors {";
    for (int error : report.errors) {
        text << " " << std::strerror(error) << ";";
    }
    text << " } gave " << seen.result << ", errno " << std::strerror(seen.error);
    for (const std::string &line : seen.log) {
        text << "\n  log " << line;
    }
    return text.str();
}

// Plays one plan and then the clean run again. False if the plan found nothing to fail.
bool play_plan(const Scenario &scenario, const Plan &plan, const Outcome &usual) {
    shim::Report report;
    Outcome seen = run(scenario, plan, report);
    std::string what = describe(scenario, plan, report, seen);
    SCOPED_TRACE(what);
    if (!report.injected) {
        return false;
    }
    bool fails = plan.mode == Mode::kFail || plan.mode == Mode::kFailFrom;
    bool one_transfer = std::strstr(scenario.on_failure, "once") != nullptr;
    if (fails) {
        EXPECT_TRUE(keeps_word(scenario, usual, seen, report));
    } else if (plan.mode == Mode::kInterrupt || !one_transfer) {
        EXPECT_EQ(difference(seen, usual), "");
    }
    Outcome again = run(scenario, {}, report);
    EXPECT_EQ(difference(again, usual), "") << "broken from then on";
    return true;
}

} // namespace

char *room(size_t size) {
    char *start = arena + arena_used;
    arena_used += size + kCanary;
    canaries.emplace_back(start + size - arena, arena_used);
    return start;
}

void play(std::span<const Scenario> scenarios) {
    for (const Scenario &scenario : scenarios) {
        shim::Report report;
        run(scenario, {}, report); // whatever is done only once
        Outcome usual = run(scenario, {}, report);
        size_t count = report.calls.size();
        SCOPED_TRACE(scenario.name);
        EXPECT_EQ(count == 0, scenario.on_failure == nullptr) << count << " calls";
        for (size_t at = 0; at < count; ++at) {
            for (size_t error = 0; play_plan(scenario, {Mode::kFail, at, error}, usual);) {
                ++error;
            }
            for (Mode mode : {Mode::kFailFrom, Mode::kInterrupt, Mode::kShort}) {
                play_plan(scenario, {mode, at, 0}, usual);
            }
        }
    }
}

const std::map<std::string, size_t> &stack_table() {
    return stack_needs;
}

size_t runs() {
    return all_runs;
}

} // namespace torture
