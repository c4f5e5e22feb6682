/// project-metadata report: a project's metadata as one self-contained HTML page.
///
/// The page lies in cli/report/; this file gives it the data, as JSON inside a <script type="application/json">. All
/// texts in it are safe to show already, so that the page need not know what is not.

#include <cerrno>
#include <cstdint>
#include <ctime>
#include <fstream>
#include <map>
#include <system_error>

#include <boost/algorithm/string/replace.hpp>

#include "cli/Command.hpp"
#include "cli/Streams.hpp"
#include "cli/report/ReportPage.hpp"
#include "cli/text/Damage.hpp"
#include "cli/text/Progress.hpp"
#include "cli/text/Warnings.hpp"
#include "host/FileUtils.hpp"
#include "host/Interruption.hpp"
#include "operations/DryRun.hpp"
#include "operations/FileOutput.hpp"
#include "operations/FolderScan.hpp"
#include "operations/Project.hpp"
#include "operations/TreeWalk.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/RepeatableRead.hpp"

namespace cli {

namespace {

/// `json`, the texts in which are safe to show, as it may stand in a <script>.
std::string format(const Json& json) {
    std::string text = json.dump();
    if (text.find('<') != std::string::npos)
        boost::algorithm::replace_all(text, "<", "\\u003C");
    return text;
}

/// Names that stand in the data as their numbers, because they come again and again.
class Names {
public:
    std::size_t numberOf(const std::u16string& name) {
        const auto [place, isNew] = known_.try_emplace(name, 0);
        if (isNew)
            place->second = numberOf(escapeName(name));
        return place->second;
    }

    /// @param name safe to show
    std::size_t numberOf(const std::string& name) {
        const auto [place, isNew] = numbers_.try_emplace(name, list_.size());
        if (isNew)
            list_.push_back(name);
        return place->second;
    }

    const Json& list() const { return list_; }

private:
    std::map<std::u16string, std::size_t> known_;
    std::map<std::string, std::size_t> numbers_;  // by what is shown
    Json list_ = Json::array();
};

/// [number of the name, [number of a key, "value", ...], [child node, ...]]
Json describe(const pm::MetadataNode& node, Names& names) {
    Json attributes = Json::array();
    pm::visitAttributes(node, [&](const std::u16string& key, const std::u16string& value) {
        attributes.push_back(names.numberOf(key));
        attributes.push_back(escapeText(value));
    });
    Json children = Json::array();
    for (const auto& child : node.getChildNodes())
        children.push_back(describe(*child, names));
    return Json::array({names.numberOf(node.getName()), std::move(attributes), std::move(children)});
}

/// The file that becomes the page.
class PageFile {
public:
    explicit PageFile(const host::Path& file) : file_(file), stream_(file.accessName(), std::ios::binary) {
        requireGood();
    }

    PageFile& operator<<(std::string_view text) {
        stream_ << text;
        requireGood();
        return *this;
    }

    /// @return the size in bytes
    std::uint64_t close() {
        const auto size = static_cast<std::uint64_t>(stream_.tellp());
        stream_.close();
        requireGood();
        return size;
    }

private:
    /// At once: the next call to the system would change the reason.
    void requireGood() const {
        if (stream_)
            return;
        const int error = errno != 0 ? errno : EIO;
        pm::raise<pm::MetadataWriteFailure>(file_.text(), host::fromUtf8(std::generic_category().message(error)));
    }

    const host::Path& file_;
    std::ofstream stream_;
};

/// Writes every path, each after its parent, as [depth, number of the type, "location", node or 0]. Type and location
/// are as they stand in the text of a path.
void writePaths(const pm::MetadataManager& store, Names& names, PageFile& page) {
    Progress progress("Reporting");
    const pm::PathElement nothing(u"", u"");
    // What is damaged stands in the page, if the store can tell.
    const bool isTold = dynamic_cast<const pm::DamageReporter*>(&store) != nullptr;
    TreeWalk walk(store, {}, TreeWalk::anyDepth, isTold ? [] {} : &reportReadError);
    std::u16string type;
    std::size_t typeNumber = names.numberOf(std::string());  // of the type as it stands in the text of a path
    for (; walk.next(); progress.advance()) {
        const bool isRoot = walk.depth() == 0;
        const pm::PathElement& element = isRoot ? nothing : walk.path().getPath().back();
        if (element.getType() != type) {
            type = element.getType();
            std::string typeAndColon = formatElement(pm::PathElement(type, u""));
            typeAndColon.pop_back();
            typeNumber = names.numberOf(typeAndColon);
        }
        const auto node = walk.readNode();
        page << (isRoot ? "" : ",\n")
             << format(Json::array(
                    {walk.depth(), typeNumber, formatLocation(element), node ? describe(*node, names) : Json(0)}));
    }
}

/// Each file with what is wrong with it.
Json listDamage(const std::vector<pm::MetadataDamage>& damages) {
    Json list = Json::array();
    for (const pm::MetadataDamage& damage : damages) {
        const std::u16string problem = explainProblem(damage.file, damage.problem);
        list.push_back(Json::array({escapeName(damage.file.text()), escapeText(problem)}));
    }
    return list;
}

struct Outcome {
    SortedDamage damage;
    std::uint64_t size = 0;  // of the page, in bytes
};

SortedDamage writeData(const host::Path& root, const pm::MetadataManager& store, PageFile& page) {
    const host::Path absoluteRoot = host::FileUtils::normalize(host::FileUtils::makeAbsolute(root));
    const std::string time = escapeText(formatTime({std::time(nullptr), 0}));
    page << "{\"project\":" << format(escapeName(absoluteRoot.fileName().text())) << ",\"time\":" << format(time)
         << ",\"paths\":[\n";
    Names names;
    const pm::RepeatableRead reading(store);
    writePaths(store, names, page);
    page << "],\n\"names\":" << format(names.list());

    SortedDamage damage = sortDamage(findDamage(store));
    page << ",\n\"damages\":" << format(listDamage(damage.lacking))
         << ",\n\"harmless\":" << format(listDamage(damage.harmless))
         << ",\n\"foreign\":" << format(listDamage(damage.foreign)) << "}";
    return damage;
}

/// Writes the page to `file`.
Outcome writePage(const host::Path& root, const pm::MetadataManager& store, const host::Path& file) {
    PageFile page(file);
    page << reportPageBegin;
    Outcome outcome{writeData(root, store, page)};
    page << reportPageEnd;
    outcome.size = page.close();
    return outcome;
}

struct Wish {
    std::string file;
    bool replace = false;
    std::shared_ptr<const bool> dryRun;
    std::shared_ptr<const bool> isJson;
};

Status report(const host::Path& root, const Wish& wish) {
    const auto store = openProject(root);
    const OutputFile file(wish.file);
    const host::Path& name = file.path();
    const auto existing = wish.replace ? Existing::replace : Existing::keep;
    requireWritable(name, existing);
    if (*wish.dryRun) {
        operations::requireFeasibleOutput(name);
        if (*wish.isJson)
            printJson({{"file", toJson(name)}, {"bytes", nullptr}});
        else
            printNote("Would write " + escapeName(name.text()) + '\n');
        return Status::done;
    }
    Outcome outcome;
    writeFile(name, existing, [&](const host::Path& staged) { outcome = writePage(root, *store, staged); });
    host::Interruption::ignore();
    file.finish();
    if (*wish.isJson && !file.isStandard())
        printJson({{"file", toJson(name)}, {"bytes", outcome.size}});
    else if (!file.isStandard())
        printNote(escapeName(name.text()) + ", " + formatSize(outcome.size) + '\n');
    flushOutput();
    const Status status = reportDamage(outcome.damage, "The report", root, ", and says so");
    if (status != Status::done)
        takeWarnings();  // the page tells them
    return status;
}

Command::Action configure(CLI::App& app) {
    const auto wish = std::make_shared<Wish>();
    const Positionals positionals(app);
    addOption(app, "-o,--output", wish->file, "The page to make; - is the standard output", "FILE", Need::required);
    addFlag(app, "--replace", wish->replace, "Replace a file that exists");
    wish->dryRun = addDryRun(app);
    wish->isJson = addJson(app);
    return [positionals, wish] { return report(positionals.get().root, *wish); };
}

const Command command(Group::report, "report", "Make a web page of a project's metadata, to look at and search",
                      configure);

}  // namespace

}  // namespace cli
