/// project-metadata find: the paths and nodes that have what is asked for.

#include "cli/Command.hpp"
#include "cli/Query.hpp"
#include "cli/Streams.hpp"
#include "cli/text/Progress.hpp"
#include "operations/TreeStore.hpp"
#include "operations/TreeWalk.hpp"

namespace cli {

namespace {

struct Flags {
    Query::Manner manner;
    bool inside = false;
    bool isNullSeparated = false;
    std::shared_ptr<const bool> isJson;
};

/// Prints what is found as soon as it is.
class Finder {
public:
    Finder(const Query& query, const Flags& flags, Progress& progress)
        : query_(query), flags_(flags), progress_(progress) {}

    void visit(TreeWalk& walk) {
        const bool isRoot = walk.path().getPath().empty();
        const Query::Need need = query_.needFor(walk.path());
        if (need == Query::Need::noMatch)
            return;
        const bool isAsked = need == Query::Need::node || flags_.inside;
        const auto node = isAsked || *flags_.isJson || isRoot ? walk.readNode() : nullptr;
        // The root path is there in any project. An unreadable node is neither one that matches nor a branch.
        if (!node && (isRoot || (isAsked && walk.isUnreadable())))
            return;
        const NodeAddress address{walk.path()};
        if (query_.matches(address.path, node.get()))
            print(address, node.get(), walk.isUnreadable());
        if (flags_.inside && node)
            visitChildren(address, *node);
    }

    /// The node at `address` and, if asked for, what is in it.
    void visit(const NodeAddress& address, const pm::MetadataNode& node) {
        progress_.advance();
        if (query_.matches(address.path, &node))
            print(address, &node, false);
        visitChildren(address, node);
    }

    /// @return whether anything was found
    bool finish() {
        progress_.giveWay();
        if (*flags_.isJson)
            list_.end();
        return isFound_;
    }

private:
    void visitChildren(const NodeAddress& address, const pm::MetadataNode& node) {
        const std::vector<NodeStep> steps = listSteps(node);
        for (std::size_t i = 0; i < steps.size(); ++i) {
            NodeAddress child = address;
            child.inside.push_back(steps[i]);
            visit(child, *node.getChildNodes()[i]);
        }
    }

    void print(const NodeAddress& address, const pm::MetadataNode* node, bool isUnreadable) {
        isFound_ = true;
        progress_.giveWay();
        if (!*flags_.isJson) {
            cli::print(formatAddress(address) + (flags_.isNullSeparated ? '\0' : '\n'));
            return;
        }
        Json match = toJson(address);
        match["node"] = toJsonOrNull(node);
        if (isUnreadable)
            match["unreadable"] = true;
        list_.add(match);
    }

    const Query& query_;
    const Flags& flags_;
    Progress& progress_;
    JsonList list_;
    bool isFound_ = false;
};

Status find(const Positionals::Values& values, const Query& query, const Flags& flags) {
    const NodeAddress start = values.texts.empty() ? NodeAddress() : parseAddress(values.texts[0]);
    Progress progress("Searching");
    const InputFile input(values.root.accessName());
    CommandObserver observer;
    const auto store = openForReading(input.path(), observer);
    requirePath(*store, start.path);
    Finder finder(query, flags, progress);
    if (!start.inside.empty()) {
        const auto node = store->getNode(start.path);
        finder.visit(start, requireNode(node.get(), start));
        return finder.finish() ? Status::done : Status::foundProblems;
    }
    TreeWalk walk(*store, start.path, TreeWalk::anyDepth, reportReadError);
    while (walk.next()) {
        progress.advance();
        finder.visit(walk);
    }
    return reportUnreadable(walk.unreadableCount(), finder.finish() ? Status::done : Status::foundProblems);
}

Command::Action configure(CLI::App& app) {
    const Positionals positionals(
        app,
        {{"PATH", "Where to start, which may be a node in a node; without, at the top", Positional::Kind::optional}},
        RootPlace::first, RootKind::projectOrFile);
    const auto flags = std::make_shared<Flags>();
    const auto conditions = std::make_shared<OrderedOptions>(app);
    conditions->addOption("--type", "The type of the path's last step", "GLOB");
    conditions->addOption("--location", "The location in the path's last step", "GLOB");
    conditions->addOption("--name", "The name of the node", "GLOB");
    conditions->addOption("--attribute",
                          "An attribute of the node: that it is there, is like KEY=GLOB, or compares as a number or a "
                          "date, by < <= > >=, such as Size>1000 or Due<=2026-11-21",
                          "KEY[=GLOB]");
    conditions->addFlag("--branches", "Paths without a node");
    conditions->addFlag("--not", "What does not have what the next option asks for");
    conditions->addFlag("--or", "What has all that stands before this, or all that follows");
    addFlag(app, "--inside", flags->inside, "Look at the nodes in nodes too, each by itself");
    addFlag(app, "--regex", flags->manner.isRegex, "Each GLOB is a regular expression of Perl, found anywhere");
    addFlag(app, "-i,--ignore-case", flags->manner.ignoreCase, "Match letters of either case");
    addFlag(app, "-0,--null", flags->isNullSeparated, "End each path with NUL, not with a line break");
    flags->isJson = addJson(app);
    setFooter(app,
              "Conditions hold together; --or stands between those of which one is enough, and --not before one: "
              "find --attribute Owner=Ann --or --type File --not --attribute 'Size<1000' finds what is Ann's, and the "
              "files of at least 1000 or without a size.");
    return [positionals, flags, conditions] {
        const Query query(conditions->get(), flags->manner);
        return find(positionals.get(), query, *flags);
    };
}

const Command command(Group::look, "find", "Find paths and nodes by type, location, name or attribute", configure);

}  // namespace

}  // namespace cli
