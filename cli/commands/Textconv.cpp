/// project-metadata textconv: a file of metadata as lines of text, for git.

#include <fstream>

#include "cli/Command.hpp"
#include "cli/Streams.hpp"
#include "cli/text/DiffText.hpp"
#include "cli/text/Progress.hpp"
#include "operations/MetadataTree.hpp"
#include "operations/Project.hpp"
#include "project/exception/ProjectException.hpp"

namespace cli {

namespace {

void printTree(const PathTree& tree, const pm::MetadataPath& path) {
    print(formatPath(path) + '\n');
    if (!tree.place.empty())
        print(makeLine(Sign::none, 1, makeAttribute(u"Place", tree.place)));
    if (tree.node)
        printNode(Sign::none, 1, *tree.node);
    for (const PathTree& child : tree.children)
        printTree(child, childPath(path, child.step));
}

/// What is no metadata, such as a file in which a merge has left its marks, is printed as it stands.
/// Called while the error of reading it is handled.
Status printLines(const host::Path& file) {
    std::ifstream stream(file.accessName(), std::ios::binary);
    if (!stream || leadsToFolder(file.accessName()))
        throw;
    for (std::string line; std::getline(stream, line);)
        print(escapeText(host::Path::fromAccessName(line).text()) + '\n');
    return Status::done;
}

Status textconv(const std::string& name) {
    const InputFile input(name);
    const host::Path& file = input.path();
    CommandObserver observer;
    MetadataTree tree;
    try {
        tree = readTree(file, observer);
    } catch (const project::exception::ProjectException&) {
        return printLines(file);
    } catch (const OperationError&) {
        return printLines(file);
    }
    if (tree.form != TreeForm::empty)
        printTree(tree.root, tree.rootPath());
    return Status::done;
}

Command::Action configure(CLI::App& app) {
    const Operands operands(app, {{"FILE", "The file of metadata, or a project's root folder"}}, 0);
    return [operands] { return textconv(*operands.get()[0]); };
}

const Command command(Group::compare, "textconv", "Print a file of metadata as lines, as git compares it", configure);

}  // namespace

}  // namespace cli
