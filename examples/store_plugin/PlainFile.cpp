#include "PlainFile.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <system_error>
#include <thread>

#include "host/FileSystem.hpp"
#include "host/Text.hpp"
#include "project/metadata/CoreFile.hpp"
#include "project/metadata/MetadataErrors.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/MetadataXml.hpp"

namespace plain {

using namespace project::metadata;

const std::u16string storeName = u"plain";

namespace {

[[noreturn]] void raiseSystemError(const host::Path& path) {
    raise<MetadataWriteFailure>(path.text(), host::fromUtf8(std::generic_category().message(errno)));
}

std::u16string escape(const std::u16string& text) {
    std::u16string escaped;
    for (const char16_t unit : text) {
        if (unit >= u' ' && unit <= u'~' && unit != u'%') {
            escaped += unit;
            continue;
        }
        escaped += u'%';
        for (int shift = 12; shift >= 0; shift -= 4)
            escaped += u"0123456789ABCDEF"[(unit >> shift) & 0xF];
    }
    return escaped;
}

std::u16string unescape(const std::u16string& text) {
    std::u16string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != u'%') {
            plain += text[i];
            continue;
        }
        unsigned unit = 0;
        for (const char16_t digit : text.substr(i + 1, 4))
            unit = unit * 16 + (digit <= u'9' ? digit - u'0' : digit - u'A' + 10U);
        plain += static_cast<char16_t>(unit);
        i += 4;
    }
    return plain;
}

bool isSameTree(const MetadataNode& a, const MetadataNode& b) {
    const auto& childrenOfA = a.getChildNodes();
    const auto& childrenOfB = b.getChildNodes();
    const auto keys = a.getAttributeKeys();
    return a.getName() == b.getName() && keys == b.getAttributeKeys() &&
           std::all_of(keys.begin(), keys.end(), [&](const auto& key) { return a.get(key) == b.get(key); }) &&
           std::equal(childrenOfA.begin(), childrenOfA.end(), childrenOfB.begin(), childrenOfB.end(),
                      [](const auto& childA, const auto& childB) { return isSameTree(*childA, *childB); });
}

std::unique_ptr<MetadataNode> toXml(const Content& content) {
    auto xml = std::make_unique<MetadataNodeSpecification>(u"Plain");
    xml->put(metadataTypeKey(), storeName);
    for (const auto& [path, node] : content) {
        MetadataNode& pathXml = xml->createChildNode(u"Path");
        for (const PathElement& element : path.getPath()) {
            MetadataNode& step = pathXml.createChildNode(u"Step");
            step.put(u"Type", escape(element.getType()));
            step.put(u"Location", escape(element.getLocation()));
        }
        if (node)
            pathXml.createChildNode(u"Node").createChildNode(node->getName()).copy(*node);
    }
    return xml;
}

/// The content that `xml` holds, whatever else it holds too.
Content fromXml(const MetadataNode& xml) {
    Content content;
    for (const auto& pathXml : xml.getChildNodes()) {
        Entry& entry = content.emplace_back();
        std::vector<PathElement> elements;
        for (const auto& part : pathXml->getChildNodes()) {
            if (part->getName() == u"Step")
                elements.emplace_back(unescape(part->get(u"Type")), unescape(part->get(u"Location")));
            else if (!part->getChildNodes().empty())
                entry.node = part->getChildNodes().front();
        }
        entry.path = MetadataPath(std::move(elements));
    }
    return content;
}

/// Sees to it that what was written to `path`, a file or the entries of a folder, survives a crash of the machine.
void flush(const host::Path& path) {
    const int descriptor = open(path.accessName().c_str(), O_RDONLY | O_CLOEXEC);
    const bool done = descriptor >= 0 && fsync(descriptor) == 0;
    const int error = errno;
    if (descriptor >= 0)
        close(descriptor);
    errno = error;
    if (!done)
        raiseSystemError(path);
}

/// Writes `xml` to `file` and proves that it can be read again.
void writeReadable(const MetadataNode& xml, const host::Path& file) {
    writeToFile(xml, file, false);
    if (!isSameTree(*readFromFile(file), xml))
        raise<MetadataReadFailure>(file.text(), u"it differs from what was written");
    flush(file);
}

}  // namespace

bool isSame(const NodePointer& a, const NodePointer& b) {
    return a == b || (a && b && isSameTree(*a, *b));
}

std::u16string makeKey(const MetadataPath& path) {
    std::u16string key;
    for (const PathElement& element : path.getPath())
        key += escape(element.getType()) + u'\n' + escape(element.getLocation()) + u'\n';
    return key;
}

Content load(const host::Path& file) {
    if (!host::FileSystem::exists(file))
        return Content(1);
    const auto xml = readFromFile(file);
    Content content = fromXml(*xml);
    if (content.empty() || !content.front().path.getPath().empty() || !isSameTree(*toXml(content), *xml))
        raise<MetadataReadFailure>(file.text(), u"it holds something that this store does not know");
    return content;
}

void save(const Content& content, const host::Path& file) {
    const host::Path newFile(file.text() + u".new");
    try {
        writeReadable(*toXml(content), newFile);
        if (std::rename(newFile.accessName().c_str(), file.accessName().c_str()) != 0)
            raiseSystemError(file);
    } catch (...) {
        const std::u16string cause = getCauseMessage();
        std::remove(newFile.accessName().c_str());
        raise<MetadataWriteFailure>(file.text(), cause);
    }
    flush(file.parentPath());
}

Lock::Lock(const host::Path& root) : folder_(open(root.accessName().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (folder_ < 0)
        raiseSystemError(root);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (flock(folder_, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK || std::chrono::steady_clock::now() > end) {
            close(folder_);
            raise<MetadataWriteFailure>(root.text(), u"the folder is locked by somebody else");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

Lock::~Lock() {
    close(folder_);
}

}  // namespace plain
