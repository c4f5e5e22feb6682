#include "host_testing/HostContract.hpp"

#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <set>
#include <stdexcept>
#include <utility>

#include <cppmicroservices/Framework.h>
#include <cppmicroservices/FrameworkFactory.h>

#include "host/DiagnosticLogger.hpp"
#include "host/FileSystem.hpp"
#include "host/FileUtils.hpp"
#include "host/MessageException.hpp"
#include "host/Path.hpp"
#include "host/ServiceFramework.hpp"
#include "host/SettingsService.hpp"
#include "host/StackTrace.hpp"
#include "host/TempDirGuard.hpp"
#include "host/Text.hpp"
#include "host/XmlText.hpp"

namespace host_testing {

namespace fs = std::filesystem;
using host::CopyOption;
using host::FileSystem;
using host::FileUtils;
using host::Path;

namespace {

/// A rule is broken; `what()` says what was expected and what was found.
class Breach : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

void requireEqual(const std::string& what, const std::string& expected, const std::string& found) {
    if (found != expected)
        throw Breach(what + ": expected \"" + expected + "\", found \"" + found + '"');
}

void require(const std::string& what, bool expected, bool found) {
    requireEqual(what, expected ? "true" : "false", found ? "true" : "false");
}

std::string describeCurrentException() {
    try {
        throw;
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "an error of an unknown type";
    }
}

/// Expects `operation` on `path` to end with an `Error` that has the path, and says something.
template <class Error>
void requireFailure(const std::string& what, const Path& path, const std::function<void(const Path&)>& operation) {
    std::string found = "no error";
    try {
        operation(path);
    } catch (const Error& error) {
        requireEqual("the path of the error of " + what, path.accessName(), error.path().accessName());
        require("the error of " + what + " says something", true,
                *error.what() != '\0' && !FileSystem::getExceptionMessage(error).empty());
        return;
    } catch (...) {
        found = describeCurrentException();
    }
    throw Breach(
        what + ": expected a " +
        (std::is_same_v<Error, host::AccessDeniedException> ? "AccessDeniedException" : "FileSystemException") +
        ", found " + found);
}

/// A scratch folder, made without the host.
class Scratch {
public:
    Scratch() {
        std::string name = (fs::temp_directory_path() / "host-contract-XXXXXX").native();
        if (!mkdtemp(name.data()))
            throw std::runtime_error("there is no place for a scratch folder");
        folder_ = name;
    }
    ~Scratch() {
        std::error_code ignored;
        fs::remove_all(folder_, ignored);
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    fs::path operator/(const std::string& name) const { return folder_ / name; }
    Path path(const std::string& name) const { return Path::fromAccessName((folder_ / name).native()); }

private:
    fs::path folder_;
};

void write(const fs::path& file, const std::string& content) {
    std::ofstream(file, std::ios::binary) << content;
}

std::string read(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void keepsEveryName() {
    std::set<std::u16string> texts;
    const std::string names[] = {"a",         "\xC3\xA4", "\xF0\x9F\x98\x80", "\xE4",
                                 "a\xFF\x80", "\xC3",     "\xED\xA0\x80",     "a b"};
    for (const std::string& name : names) {
        const Path path = Path::fromAccessName(name);
        requireEqual("a name on disk, through a Path", name, path.accessName());
        require("another text for the name \"" + name + '"', true, texts.insert(path.text()).second);
        requireEqual("native() of a Path", name, path.native().accessName());
    }
}

void joinsAndSplits() {
    const auto joined = [](const char16_t* left, const char16_t* right) { return (Path(left) / right).accessName(); };
    requireEqual("\"a\" / \"b\"", "a/b", joined(u"a", u"b"));
    requireEqual("\"a/\" / \"b\"", "a/b", joined(u"a/", u"b"));
    requireEqual("\"\" / \"b\"", "b", joined(u"", u"b"));
    requireEqual("\"a\" / \"/b\"", "/b", joined(u"a", u"/b"));
    for (const auto& [path, parent, name] : {std::tuple(u"/a/b", "/a", "b"), {u"/a", "/", "a"}, {u"a", "", "a"}}) {
        requireEqual("parentPath", parent, Path(path).parentPath().accessName());
        requireEqual("fileName", name, Path(path).fileName().accessName());
    }
}

void ordersByElements() {
    const std::vector<Path> ascending{u"", u"/", u"/a", u"a", u"a/b", u"a/b/c", u"a-b", u"b"};
    for (std::size_t i = 0; i + 1 < ascending.size(); ++i)
        require('"' + ascending[i].accessName() + "\" < \"" + ascending[i + 1].accessName() + '"', true,
                ascending[i] < ascending[i + 1] && ascending[i] != ascending[i + 1]);
    require("\"a//b\" == \"a/b\"", true, Path(u"a//b") == Path(u"a/b"));
}

void makesAndRemovesFolders() {
    const Scratch scratch;
    FileSystem::create_directories(scratch.path("a/b/c"));
    FileSystem::create_directories(scratch.path("a/b"));
    require("the new folder exists", true, fs::is_directory(scratch / "a/b/c"));
    write(scratch / "kept", "");
    fs::create_symlink(scratch / "kept", scratch / "a/link");
    FileSystem::remove_all(scratch.path("a"));
    FileSystem::remove_all(scratch.path("none"));
    require("the removed folder exists", false, fs::exists(scratch / "a"));
    require("what a removed link led to exists", true, fs::exists(scratch / "kept"));
}

void saysWhatExists() {
    const Scratch scratch;
    write(scratch / "file", "");
    fs::create_symlink("none", scratch / "dangling");
    for (const auto& [name, exists] :
         {std::pair("file", true), {"none", false}, {"dangling", false}, {"file/x", false}}) {
        require(std::string("existNoExcept of ") + name, exists, FileUtils::existNoExcept(scratch.path(name)));
        require(std::string("exists of ") + name, exists, FileSystem::exists(scratch.path(name)));
    }
}

void listsFolders() {
    const Scratch scratch;
    fs::create_directories(scratch / "folder/below");
    write(scratch / "folder/\xE4", "");
    std::set<std::string> found;
    for (host::DirectoryIterator entries(scratch.path("folder")); entries.isOpen(); entries.increment())
        found.insert(entries.fullPathName().accessName());
    require("every entry of a folder, under its full name", true,
            found == std::set<std::string>{scratch / "folder/below", scratch / "folder/\xE4"});
    require("the listing of an empty folder is open", false,
            host::DirectoryIterator(scratch.path("folder/below")).isOpen());
}

void copiesFiles() {
    const Scratch scratch;
    const std::string content(200'000, 'x');
    write(scratch / "from", content);
    fs::permissions(scratch / "from", fs::perms(0400));
    FileSystem::copy_file(scratch.path("from"), scratch.path("to"), CopyOption::none);
    require("the copy has the content", true, read(scratch / "to") == content);
    require("the copy has the permissions", true, fs::status(scratch / "to").permissions() == fs::perms(0400));
    write(scratch / "old", "old");
    const auto refuse = [&](const Path& to) { FileSystem::copy_file(scratch.path("from"), to, CopyOption::none); };
    requireFailure<host::FileSystemException>("copying over a file", scratch.path("old"), refuse);
    requireEqual("the file that was not to be replaced", "old", read(scratch / "old"));
    FileSystem::copy_file(scratch.path("from"), scratch.path("old"), CopyOption::overwriteExisting);
    require("the replaced file has the content", true, read(scratch / "old") == content);
}

void namesWhatFailed() {
    const Scratch scratch;
    write(scratch / "file", "");
    requireFailure<host::FileSystemException>("making a folder below a file", scratch.path("file/x"),
                                              FileSystem::create_directories);
    requireFailure<host::FileSystemException>("listing what does not exist", scratch.path("none"),
                                              [](const Path& path) { host::DirectoryIterator entries(path); });
    // Nobody may make a folder there, not even the administrator.
    requireFailure<host::AccessDeniedException>("making a folder in /sys", u"/sys/host-contract",
                                                FileSystem::create_directories);
}

void makesWritable() {
    const Scratch scratch;
    write(scratch / "file", "");
    fs::permissions(scratch / "file", fs::perms(0444));
    FileUtils::makeWritable(scratch.path("file"));
    require("the owner's permission to write, and the others as they were", true,
            fs::status(scratch / "file").permissions() == fs::perms(0644));
    require("isReadOnly of a file that was made writable", false, FileUtils::isReadOnly(scratch.path("file")));
    require("isReadOnlyNoExcept of what does not exist", false, FileUtils::isReadOnlyNoExcept(scratch.path("none")));
}

void worksOutPaths() {
    requireEqual("makeAbsolute of \"/a\"", "/a", FileUtils::makeAbsolute(u"/a").accessName());
    requireEqual("makeAbsolute of \"a\"", fs::current_path() / "a", FileUtils::makeAbsolute(u"a").accessName());
    requireEqual("normalize", "/b/c", FileUtils::normalize(u"/a/.././b//c/").accessName());
    for (const auto& [above, below, expected] : {std::tuple(u"/a/b", u"/a/b/c", true),
                                                 {u"/a/b", u"/a/bc", false},
                                                 {u"/a/b", u"/a/b", false},
                                                 {u"/a/b", u"/a", false}})
        require("isAncestor of " + Path(above).accessName() + " and " + Path(below).accessName(), expected,
                FileUtils::isAncestor(above, below));
}

void scratchFoldersGo() {
    const std::u16string parent = FileSystem::temp_directory_name().text();
    fs::path first;
    {
        const host::TempDirGuard one(parent, u"contract-", u".x");
        const host::TempDirGuard other(parent, u"contract-", u".x");
        first = Path(one.getDirectoryName()).accessName();
        require("two scratch folders have two names", true, one.getDirectoryName() != other.getDirectoryName());
        require("a scratch folder is for its owner only", true, fs::status(first).permissions() == fs::perms(0700));
        fs::create_directories(first / "a/b");
    }
    require("a scratch folder exists after its guard", false, fs::exists(first));
}

void convertsText() {
    for (const std::string text : {"", "a", "\xC3\xA4\xE4\xB8\xAD\xF0\x9F\x98\x80"}) {
        requireEqual("a text through UTF-16", text, host::toUtf8(host::fromUtf8(text)));
        const host::XmlText xml(host::fromUtf8(text));
        requireEqual("an XmlText", text, reinterpret_cast<const char*>(xml.get()));
        requireEqual("an XmlText, back", text, host::toUtf8(host::XmlText::toUtf16(xml.get())));
    }
    const std::u16string ill{u'a', 0xD800, u'b'};
    requireEqual("a surrogate without a partner",
                 "a\xEF\xBF\xBD"
                 "b",
                 host::toUtf8(ill));
    require("XmlText of no text is empty", true, host::XmlText::toUtf16(nullptr).empty());
}

void hasAllSentences() {
    for (const char* key :
         {"ReadOnlyMetadataFailure", "MetadataWriteFailure", "FailedToMakeMetadataWritable", "ListChildFilesFailure",
          "MetadataReadFailure", "PutMetadataKeyFailure", "PutMetadataValueFailure"}) {
        const host::MessageId id{"KORVEX:project:metadata", key, {u"the argument"}};
        requireEqual("the text of an ID", std::string("KORVEX:project:metadata:") + key, host::getIdText(id));
        const std::string sentence = host::toUtf8(host::getMessageText(id));
        require(std::string("the sentence of ") + key + " names its argument", true,
                sentence.find("the argument") != std::string::npos);
        require(std::string("the sentence of ") + key + " is more than the ID", true,
                sentence.find(key) == std::string::npos);
    }
}

__attribute__((noinline)) host::StackTrace captureHere(std::size_t skipped) {
    return host::StackTrace::capture(skipped);
}

void recordsStacks() {
    const host::StackTrace all = captureHere(0);
    const host::StackTrace fewer = captureHere(1);
    require("a stack trace has frames", true, all.size() > 2 && all.size() <= host::StackTrace::capacity);
    require("a skipped frame is left out", true, fewer.size() + 1 == all.size());
}

void settingsCanBeReplaced() {
    struct Group : host::SettingsGroup {
        std::shared_ptr<const SettingsGroup> getGroup(const std::string& /*name*/) const override {
            return std::make_shared<Group>();
        }
        std::u16string getText(const std::string& key, const std::string& /*qualifier*/) const override {
            return host::fromUtf8(key);
        }
    };
    using host::SettingsService;
    const auto before = SettingsService::getSettingsRoot();
    if (before) {
        for (const auto& [group, key] : {std::pair("korvex.project.creation", "DefaultMetadataRoot"),
                                         {"korvex.project.creation", "DefaultMetadataManager"},
                                         {"korvex.project.metadata", "MakeReadOnlyMetadataWritable"}})
            before->getGroup(group)->getText(key, "");
    }
    const auto mine = std::make_shared<Group>();
    SettingsService::setSettingsRoot(mine);
    const bool isMine = SettingsService::getSettingsRoot() == mine;
    SettingsService::setSettingsRoot(nullptr);
    const bool isGone = SettingsService::getSettingsRoot() == nullptr;
    SettingsService::setSettingsRoot(before);
    require("settings that were set are the settings", true, isMine);
    require("settings that were taken away are gone", true, isGone);
}

void frameworkCanBeReplaced() {
    using host::ServiceFramework;
    const auto before = ServiceFramework::getFramework();
    const auto mine =
        std::make_shared<cppmicroservices::Framework>(cppmicroservices::FrameworkFactory().NewFramework());
    mine->Start();
    ServiceFramework::setFramework(mine);
    const bool isMine = ServiceFramework::getFramework() == mine;
    const bool isEmpty = ServiceFramework::installBundles(u"host-contract/none").empty();
    ServiceFramework::setFramework(nullptr);
    const bool isGone = ServiceFramework::getFramework() == nullptr;
    const bool isEmptyWithout = ServiceFramework::installBundles(u"host-contract/none").empty();
    ServiceFramework::setFramework(before);
    require("a framework that was set is the framework", true, isMine);
    require("a framework that was taken away is gone", true, isGone);
    require("a folder that does not exist has no bundles", true, isEmpty);
    require("without a framework there are no bundles", true, isEmptyWithout);
}

void logs() {
    host::DiagnosticLogger logger("host::contract");
    for (const auto severity : {host::Severity::trace, host::Severity::info})
        logger.log(severity, "a record of a check");
}

}  // namespace

const std::vector<Rule>& getRules() {
    static const auto& rules = *new std::vector<Rule>{
        {"KeepsEveryName", "A `Path` keeps every name on disk, UTF-8 or not, byte for byte, and no two have one text.",
         keepsEveryName},
        {"JoinsAndSplits", "Paths are joined with one separator, an absolute one replaces all, and parents are found.",
         joinsAndSplits},
        {"OrdersByElements", "Paths are compared element by element, and repeated separators do not count.",
         ordersByElements},
        {"MakesAndRemovesFolders",
         "Folders are made with all above them, and removed with all below but not through links.",
         makesAndRemovesFolders},
        {"SaysWhatExists", "What a link leads to exists or not, and what is below a file does not.", saysWhatExists},
        {"ListsFolders", "A folder is listed with the full names of all its entries.", listsFolders},
        {"CopiesFiles", "A copy has content and permissions, and replaces a file only if that is wanted.", copiesFiles},
        {"NamesWhatFailed",
         "Errors of the file system have the path and a message; what is not allowed is an "
         "`AccessDeniedException`.",
         namesWhatFailed},
        {"MakesWritable", "`makeWritable` adds the owner's permission to write, and `isReadOnly` sees it.",
         makesWritable},
        {"WorksOutPaths", "Paths are made absolute and normal, and ancestors told, by their texts alone.",
         worksOutPaths},
        {"ScratchFoldersGo", "A scratch folder has a name of its own, is for its owner only, and goes with its guard.",
         scratchFoldersGo},
        {"ConvertsText", "Text keeps every character, and what is no text becomes U+FFFD.", convertsText},
        {"HasAllSentences", "The message catalog has a sentence with its arguments for every error of the library.",
         hasAllSentences},
        {"RecordsStacks", "A stack trace begins with its caller and leaves out what is to be skipped.", recordsStacks},
        {"SettingsCanBeReplaced", "Settings have the three values that are read, can be replaced, and taken away.",
         settingsCanBeReplaced},
        {"FrameworkCanBeReplaced",
         "The service framework can be replaced and taken away, and a folder that does not exist "
         "has no bundles.",
         frameworkCanBeReplaced},
        {"Logs", "Records of every severity may be written.", logs},
    };
    return rules;
}

std::optional<std::string> findBreach(const Rule& rule) {
    try {
        rule.check();
        return std::nullopt;
    } catch (const Breach& breach) {
        return breach.what();
    } catch (...) {
        return "expected no error, found " + describeCurrentException();
    }
}

}  // namespace host_testing
