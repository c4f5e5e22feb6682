/// What the checks of the rules share: scratch projects, short ways to write paths and nodes, and breaches.
///
/// Belongs to the thread that checks.
#pragma once

#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "host/Path.hpp"
#include "host/TempDirGuard.hpp"
#include "project/metadata/MetadataManager.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "store_testing/StoreContract.hpp"

namespace project::store_testing {

using metadata::MetadataManager;
using metadata::MetadataNode;
using metadata::MetadataNodeSpecification;
using metadata::MetadataPath;
using metadata::PathElement;

using Nodes = std::map<MetadataPath, std::shared_ptr<MetadataNode>>;

/// A rule is broken; `what()` says what was expected and what was found.
class Breach : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A scratch folder with the projects of one check.
class ScratchProject {
public:
    explicit ScratchProject(FactoryMaker makeFactory);

    /// The root folder of the project `name`, made if it is missing.
    host::Path root(const std::string& name = "project") const;

    /// The metadata folder of the project `name`.
    host::Path metadataFolder(const std::string& name = "project") const;

    /// The factory; never null.
    std::shared_ptr<metadata::MetadataManagerFactory> factory() const;

    /// A new store on the project `name`; never null.
    std::unique_ptr<MetadataManager> open(const std::string& name = "project") const;

    /// The scratch folder.
    host::Path folder() const { return host::Path(scratch_.getDirectoryName()); }

private:
    FactoryMaker makeFactory_;
    host::TempDirGuard scratch_;
};

/// The path of steps of the type "t" whose locations are the parts of `text` between slashes; the root for "".
MetadataPath path(const std::string& text);

/// Several paths, with blanks between their texts; "/" is the root.
std::vector<MetadataPath> paths(const std::string& texts);

/// A node with `value` in its attribute "Value".
std::shared_ptr<MetadataNode> node(const std::string& value);

/// A tree as text: equal texts mean equal trees.
std::string describe(const MetadataNode* node);

/// Paths as `paths` takes them, whatever the types of their steps.
std::string describe(const std::vector<MetadataPath>& all);

/// Every path, level by level, with its node as `describe` shows it.
/// @throws Breach if the answers of `store` contradict each other
std::vector<std::pair<MetadataPath, std::string>> read(const MetadataManager& store);

/// @throws Breach with `breach` unless `holds`
void require(bool holds, const std::string& breach);

/// @throws Breach unless `found` is `expected`, naming `what` that is
void requireEqual(const std::string& what, const std::string& expected, const std::string& found);

/// Compares all below the root of `store` with `expected`: each path with the value of its node in parentheses if it
/// has one, followed by what is below it, such as "a a/b(1) a/c d(2)".
void requireContent(const std::string& when, const MetadataManager& store, const std::string& expected);

/// The text of the exception that is being handled.
std::string describeCurrentException();

/// @throws Breach unless `change` ends with an `Error`
template <class Error, class Change>
void requireThrows(const std::string& what, const char* error, const Change& change) {
    std::string found = "none";
    try {
        change();
    } catch (const Error&) {
        return;
    } catch (...) {
        found = describeCurrentException();
    }
    throw Breach(what + ": expected the error " + error + ", found " + found);
}

/// Every file below `folder` with its content and its time of modification, as text, and every folder, whose name then
/// ends with a slash, without. Returns when what is written from now on has a later time than they.
std::map<std::string, std::string> readFiles(const host::Path& folder);

/// @throws Breach naming the first file that differs
void requireSameFiles(const std::string& when, const std::map<std::string, std::string>& expected,
                      const std::map<std::string, std::string>& found);

}  // namespace project::store_testing
