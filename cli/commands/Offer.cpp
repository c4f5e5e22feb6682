/// project-metadata offer: what may stand at the end of a command line, for the completions of shells.
///
/// Its arguments are the words of the line, the name of the program first, up to the one that is to be completed. What
/// is printed: first, in a line, what the shell is to add from the disk, "files", "folders" or "nothing"; then each
/// candidate for the last word in a line of its own, behind "+" if it can be gone on with, or " " if it is complete.
///
/// It is run behind the user's back, so it says nothing of what goes wrong, writes nothing, waits for nobody, and ends
/// within seconds.

#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <set>

#if __has_include(<linux/landlock.h>)
#include <linux/landlock.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#endif

#include <CLI/CLI.hpp>
#include <boost/algorithm/string/predicate.hpp>

#include "cli/Command.hpp"
#include "cli/Meaning.hpp"
#include "cli/text/Warnings.hpp"
#include "operations/NodeAddress.hpp"
#include "operations/Project.hpp"
#include "project/metadata/FactoryRegistry.hpp"

namespace cli {

namespace {

/// After how many seconds a user who waits for nothing but a word has waited enough.
constexpr int timeLimit = 10;

/// More than anybody reads, and no more than a shell shows at once.
constexpr std::size_t largestOffer = 1000;

/// In how many nodes keys are looked for, where more than one can be meant.
constexpr std::size_t largestSample = 100;

void endIn(int seconds) {
    std::signal(SIGALRM, [](int) { _exit(0); });
    const itimerval limit{{0, 0}, {seconds, 0}};
    setitimer(ITIMER_REAL, &limit, nullptr);
}

/// Has the system refuse to this process whatever would change files and folders, where it can do so: a store that is
/// opened may complete what another process has left.
void renounceChanges() {
#if defined(LANDLOCK_ACCESS_FS_MAKE_SYM) && defined(SYS_landlock_restrict_self)
    landlock_ruleset_attr rules{};
    rules.handled_access_fs = LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_REMOVE_DIR |
                              LANDLOCK_ACCESS_FS_REMOVE_FILE | LANDLOCK_ACCESS_FS_MAKE_CHAR |
                              LANDLOCK_ACCESS_FS_MAKE_DIR | LANDLOCK_ACCESS_FS_MAKE_REG | LANDLOCK_ACCESS_FS_MAKE_SOCK |
                              LANDLOCK_ACCESS_FS_MAKE_FIFO | LANDLOCK_ACCESS_FS_MAKE_BLOCK |
                              LANDLOCK_ACCESS_FS_MAKE_SYM;
    const long descriptor = syscall(SYS_landlock_create_ruleset, &rules, sizeof rules, 0);
    if (descriptor < 0)
        return;
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0)
        syscall(SYS_landlock_restrict_self, descriptor, 0);
    close(static_cast<int>(descriptor));
#endif
}

/// A command line up to its last word, which the user is typing.
struct Line {
    const CLI::App* command = nullptr;    ///< null if it is the last word
    std::vector<std::string> arguments;   ///< before the last word, without options
    std::optional<std::string> root;      ///< what --root names
    bool isPastOptions = false;           ///< whether nothing that follows is an option
    const CLI::Option* option = nullptr;  ///< the one whose value the last word is
    std::size_t place = 0;                ///< which of its values that is
    std::string head;                     ///< what stands before the value in the last word, such as "--store="
    std::string typed;                    ///< the rest of it
};

/// `name` as the shell will give it to the command.
std::string expandHome(const std::string& name) {
    const char* const home = std::getenv("HOME");
    return home && name.rfind("~/", 0) == 0 ? home + name.substr(1) : name;
}

class LineReader {
public:
    explicit LineReader(const CLI::App& app) : app_(app) {}

    /// @param words the name of the program is the first
    /// @return no value where nothing is known of the last word, or the shell needs no help with it
    std::optional<Line> read(const std::vector<std::string>& words) {
        for (std::size_t i = 1; i < words.size(); ++i) {
            const std::string& word = words[i];
            const bool isLast = i == words.size() - 1;
            line_.head.clear();
            line_.typed = word;
            const bool isOption = !line_.option && !line_.isPastOptions && word.size() > 1 && word.front() == '-';
            if (isOption && word == "--")
                line_.isPastOptions = true;
            else if (isOption)
                startOption(word);
            const bool isValue = line_.option && (!isOption || !line_.head.empty());
            if (isLast)
                return isOption && !isValue ? std::nullopt : std::optional(std::move(line_));
            if (isValue)
                takeValue();
            else if (!isOption && !takeArgument(word))
                return std::nullopt;
        }
        return std::nullopt;
    }

private:
    const CLI::Option* find(const std::string& name) const {
        const CLI::Option* const option = line_.command ? line_.command->get_option_no_throw(name) : nullptr;
        return option ? option : app_.get_option_no_throw(name);
    }

    /// Looks which option `word` names, and whether its value stands there too.
    void startOption(const std::string& word) {
        const auto start = [&](const std::string& name, std::size_t end) {
            const CLI::Option* const option = find(name);
            if (!option || option->get_items_expected_max() == 0)
                return false;
            line_.option = option;
            line_.place = 0;
            line_.head = word.substr(0, end);
            line_.typed = word.substr(end);
            if (line_.typed.empty() && word[end - 1] != '=')
                line_.head.clear();
            return true;
        };
        if (word[1] == '-') {
            const std::size_t equals = word.find('=');
            start(word.substr(0, equals), equals == std::string::npos ? word.size() : equals + 1);
            return;
        }
        for (std::size_t i = 1; i < word.size(); ++i) {
            if (start({'-', word[i]}, i + 1))
                return;
        }
    }

    void takeValue() {
        if (line_.option->check_lname("root"))
            line_.root = expandHome(line_.typed);
        if (++line_.place == static_cast<std::size_t>(line_.option->get_items_expected_min()))
            line_.option = nullptr;
    }

    /// @return false if it should be a command, and is none
    bool takeArgument(const std::string& word) {
        if (line_.command) {
            line_.arguments.push_back(expandHome(word));
            return true;
        }
        const auto commands =
            app_.get_subcommands([&](const CLI::App* command) { return command->get_name() == word; });
        line_.command = commands.empty() ? nullptr : commands.front();
        return line_.command != nullptr;
    }

    const CLI::App& app_;
    Line line_;
};

struct Candidate {
    std::string text;
    bool canGoOn;
};

class Offer {
public:
    explicit Offer(Line line)
        : line_(std::move(line)),
          arguments_(
              foreseeArguments(*line_.command, line_.arguments, line_.option != nullptr, line_.root.has_value())) {}

    /// The text that is to be printed.
    std::string make() {
        std::string fromDisk = "nothing";
        for (const std::string& name : line_.option ? std::vector{nameOfValue()} : arguments_.next) {
            const Meaning meaning = meaningOf(name);
            if (meaning == Meaning::file || meaning == Meaning::folder)
                fromDisk = meaning == Meaning::file ? "files" : "folders";
            else
                add(meaning, name);
            if (!candidates_.empty())
                break;
        }
        const auto isBefore = [](const Candidate& a, const Candidate& b) { return a.text < b.text; };
        std::sort(candidates_.begin(), candidates_.end(), isBefore);
        shorten();
        std::string text = fromDisk + '\n';
        for (const Candidate& candidate : candidates_)
            text += (candidate.canGoOn ? '+' : ' ') + line_.head + candidate.text + '\n';
        return text;
    }

private:
    /// Such as "PATH", one of the words of "PATH ours|theirs".
    std::string nameOfValue() const {
        const std::vector<std::string> names = CLI::detail::split(line_.option->get_type_name(), ' ');
        return names.at(std::min(line_.place, names.size() - 1));
    }

    /// @param name what `meaning` is that of; it may list choices
    void add(Meaning meaning, const std::string& name) {
        try {
            if (name.find('|') != std::string::npos) {
                for (const std::string& choice : CLI::detail::split(name, '|'))
                    addIfTyped(choice, false);
            } else if (meaning == Meaning::store)
                addStores();
            else if (meaning == Meaning::path)
                addPaths();
            else if (meaning != Meaning::text)
                addKeys(meaning);
        } catch (...) {
            // There is no project, or nothing that can be read where this leads.
        }
    }

    void addIfTyped(const std::string& text, bool canGoOn) {
        const bool isOption = !line_.option && !line_.isPastOptions && boost::algorithm::starts_with(text, "-");
        if (boost::algorithm::starts_with(text, line_.typed) && !isOption)
            candidates_.push_back({text, canGoOn});
    }

    /// For a name that the command takes as it is, which must be one that can be seen and typed.
    void addName(const std::u16string& name, const std::string& ending, bool canGoOn) {
        const std::string text = host::toUtf8(name);
        if (escapeName(name) == text && text.find_first_of("=@<>") == std::string::npos)
            addIfTyped(text + ending, canGoOn);
    }

    void addStores() {
        for (const auto& factory : pm::getRegisteredFactories()) {
            if (!factory->isHidden())
                addName(factory->getName(), "", false);
        }
    }

    const pm::MetadataManager& store() {
        if (!store_) {
            const std::optional<std::string>& named = line_.root ? line_.root : arguments_.root;
            store_ = openIdleProject(named ? host::Path::fromAccessName(*named) : findRoot());
        }
        if (!store_)
            throw OperationError(ErrorKind::failure, "The project is being changed");
        return *store_;
    }

    /// The last "|" or "#" that ends a step, or the end of the text.
    std::size_t findSeparator() const {
        std::size_t last = std::string::npos;
        for (std::size_t i = 0; i < line_.typed.size(); ++i) {
            if (line_.typed[i] == '\\')
                ++i;
            else if (line_.typed[i] == '|' || line_.typed[i] == '#')
                last = i;
        }
        return last;
    }

    void addPaths() {
        const std::size_t separator = findSeparator();
        if (separator == std::string::npos) {
            addChildren({}, "");
            return;
        }
        const NodeAddress above = parseAddress(line_.typed.substr(0, separator));
        const std::string start = line_.typed.substr(0, separator + 1);
        if (start.back() == '|' && above.inside.empty())
            addChildren(above.path, start);
        else if (start.back() == '#')
            addChildNodes(above, start);
    }

    /// @param start what is typed of `parent`, with a separator behind it
    void addChildren(const pm::MetadataPath& parent, const std::string& start) {
        std::vector<pm::MetadataPath> found;
        for (pm::MetadataPath& path : store().getChildren(parent)) {
            const std::size_t before = candidates_.size();
            addIfTyped(start + formatElement(path.getLeaf()), false);
            if (candidates_.size() > before)
                found.push_back(std::move(path));
        }
        const auto exact = std::find_if(candidates_.begin(), candidates_.end(),
                                        [this](const Candidate& each) { return each.text == line_.typed; });
        if (found.size() == 1 && exact == candidates_.end()) {
            candidates_.front().canGoOn = !store().getChildren(found.front()).empty();
            return;
        }
        if (exact == candidates_.end())
            return;
        const std::vector<pm::MetadataPath> below =
            store().getChildren(found[static_cast<std::size_t>(exact - candidates_.begin())]);
        if (below.empty())
            return;
        const std::string further = line_.typed + '|';
        if (found.size() > 1) {
            candidates_.push_back({further, true});
            return;
        }
        // Nothing else can be meant but what is below.
        candidates_.clear();
        for (const pm::MetadataPath& path : below)
            candidates_.push_back({further + formatElement(path.getLeaf()), true});
    }

    void addChildNodes(const NodeAddress& above, const std::string& start) {
        const auto node = store().getNode(above.path);
        for (const NodeStep& step : listSteps(requireNode(node.get(), above)))
            addIfTyped(start + formatAddress({{}, {step}}).substr(2), false);
    }

    void addKeys(Meaning meaning) {
        NodeAddress address;
        const auto path = std::find_if(arguments_.given.rbegin(), arguments_.given.rend(),
                                       [](const auto& each) { return meaningOf(each.first) == Meaning::path; });
        if (path != arguments_.given.rend())
            address = parseAddress(path->second);
        else if (meaning != Meaning::condition)
            return;
        std::vector<pm::MetadataPath> paths{address.path};
        if (meaning == Meaning::condition && address.inside.empty()) {
            const std::vector<pm::MetadataPath> below = store().getChildren(address.path);
            paths.insert(paths.end(), below.begin(),
                         below.begin() + static_cast<std::ptrdiff_t>(std::min(below.size(), largestSample)));
        }
        std::set<std::u16string> keys;
        for (const pm::MetadataPath& each : paths) {
            const auto node = store().getNode(each);
            const auto* const found = node ? findNode(node.get(), {each, address.inside}) : nullptr;
            if (!found)
                continue;
            const std::vector<std::u16string> more = found->getAttributeKeys();
            keys.insert(more.begin(), more.end());
        }
        for (const std::u16string& key : keys)
            addName(key, meaning == Meaning::assignment ? "=" : "", meaning != Meaning::key);
    }

    /// Where there are too many candidates, the beginnings that they have in common take their place: so the user comes
    /// nearer with each step, and none is out of reach.
    void shorten() {
        if (candidates_.size() <= largestOffer)
            return;
        std::vector<std::size_t> common;  // how many bytes each has in common with the one before it
        for (std::size_t i = 1; i < candidates_.size(); ++i) {
            const std::string& a = candidates_[i - 1].text;
            const std::string& b = candidates_[i].text;
            const auto end = std::mismatch(a.begin(), a.end(), b.begin(), b.end()).first;
            common.push_back(static_cast<std::size_t>(end - a.begin()));
        }
        const auto longest = common.begin() + (largestOffer - 1);
        std::nth_element(common.begin(), longest, common.end());
        for (Candidate& candidate : candidates_) {
            std::size_t size = *longest;
            while (size < candidate.text.size() && (candidate.text[size] & 0xC0) == 0x80)
                --size;
            if (size < candidate.text.size())
                candidate = {candidate.text.substr(0, size), true};
        }
        const auto isSame = [](const Candidate& a, const Candidate& b) { return a.text == b.text; };
        candidates_.erase(std::unique(candidates_.begin(), candidates_.end(), isSame), candidates_.end());
    }

    const Line line_;
    const Continuation arguments_;
    std::unique_ptr<pm::MetadataManager> store_;
    std::vector<Candidate> candidates_;
};

Command::Action configure(CLI::App& app) {
    // What follows the first word is not for the parser, whatever it looks like.
    app.fallthrough(false);
    app.prefix_command();
    return [&app] {
        endIn(timeLimit);
        renounceChanges();
        std::optional<Line> line = LineReader(*app.get_parent()).read(app.remaining());
        print(line && line->command ? Offer(std::move(*line)).make() : "nothing\n");
        takeWarnings();
        return Status::done;
    };
}

const Command command(Group::hidden, "offer", "Print what may stand at the end of a command line", configure);

}  // namespace

}  // namespace cli
