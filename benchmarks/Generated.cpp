#include "benchmarks/Generated.hpp"

#include <algorithm>
#include <array>
#include <random>

#include "host/Text.hpp"

namespace benchmarks {

namespace {

using project::metadata::MetadataNode;
using project::metadata::MetadataNodeSpecification;
using project::metadata::MetadataPath;
using project::metadata::PathElement;

/// Random values of attributes. The distributions of the standard library differ between its versions, so they are
/// not used here.
class Values {
public:
    std::uint64_t below(std::uint64_t limit) { return random_() % limit; }

    std::u16string hexadecimal(std::size_t digits) {
        std::u16string text;
        for (std::size_t i = 0; i < digits; ++i)
            text += u"0123456789abcdef"[below(16)];
        return text;
    }

    std::u16string uuid() {
        return hexadecimal(8) + u"-" + hexadecimal(4) + u"-" + hexadecimal(4) + u"-" + hexadecimal(4) + u"-" +
               hexadecimal(12);
    }

    std::u16string date() {
        const auto twoDigits = [&](std::uint64_t first, std::uint64_t limit) {
            return number(100 + first + below(limit)).substr(1);
        };
        return u"20" + twoDigits(10, 15) + u"-" + twoDigits(1, 12) + u"-" + twoDigits(1, 28);
    }

    std::u16string decimal() { return number(below(10000)) + u"." + number(below(1000)); }

    std::u16string word() {
        return choice({u"pump",   u"valve",        u"drive",  u"sensor", u"station",       u"gear",           u"motor",
                       u"axis",   u"inlet",        u"outlet", u"tank",   u"F\u00F6rderer", u"K\u00FChlkreis", u"relais",
                       u"\u03BB", u"\u6E29\u5EA6", u"R&D",    u"<new>",  u"12\"",          u"buffer"});
    }

    std::u16string text(std::size_t words) {
        std::u16string text = word();
        while (--words > 0)
            text += u" " + word();
        return text;
    }

    std::u16string choice(std::initializer_list<const char16_t*> choices) {
        return choices.begin()[below(choices.size())];
    }

private:
    std::mt19937_64 random_{1};  // NOLINT: the same values in each run
};

void fillFolder(MetadataNode& node, Values& values, std::uint64_t index) {
    node.put(u"Name", values.word() + u" " + number(index));
    node.put(u"Uuid", values.uuid());
    node.put(u"Owner", values.choice({u"engineering", u"assembly", u"service"}));
}

void fillFile(MetadataNode& node, Values& values, std::uint64_t index) {
    node.put(u"Name", values.word() + u"_" + number(index) + values.choice({u".c", u".st", u".xml", u".png"}));
    node.put(u"Size", number(values.below(5000000)));
    node.put(u"Modified", values.date());
    node.put(u"ReadOnly", values.choice({u"true", u"false"}));
}

void fillSignal(MetadataNode& node, Values& values, std::uint64_t index) {
    node.put(u"Id", number(index));
    node.put(u"Name", values.word() + number(values.below(1000)));
    node.put(u"Unit", values.choice({u"mm", u"°C", u"bar", u"m/s"}));
    node.put(u"Minimum", values.decimal());
    node.put(u"Maximum", values.decimal());
}

void fillSetting(MetadataNode& node, Values& values, std::uint64_t index) {
    node.put(u"Key", values.word() + u"." + values.word() + u"." + number(index));
    node.put(u"Type", values.choice({u"INT", u"REAL", u"BOOL", u"STRING"}));
    node.put(u"Value", number(values.below(100000)));
}

void fillReference(MetadataNode& node, Values& values, std::uint64_t /*index*/) {
    node.put(u"Target", values.uuid());
    node.put(u"Kind", values.choice({u"uses", u"contains", u"replaces"}));
}

void fillComment(MetadataNode& node, Values& values, std::uint64_t index) {
    node.put(u"Author", u"user" + number(values.below(40)));
    node.put(u"Line", number(index));
    node.put(u"Text", values.text(3 + values.below(8)));
}

void fillPosition(MetadataNode& node, Values& values, std::uint64_t /*index*/) {
    for (const char16_t* key : {u"X", u"Y", u"Width", u"Height"})
        node.put(key, number(values.below(4000)));
}

struct Kind {
    const char16_t* name;
    void (*fill)(MetadataNode& node, Values& values, std::uint64_t index);
};

// Ten nodes have 35 attributes.
constexpr std::array<Kind, 10> kinds = {{{u"Folder", fillFolder},
                                         {u"File", fillFile},
                                         {u"Signal", fillSignal},
                                         {u"Setting", fillSetting},
                                         {u"Position", fillPosition},
                                         {u"File", fillFile},
                                         {u"Reference", fillReference},
                                         {u"File", fillFile},
                                         {u"Position", fillPosition},
                                         {u"Comment", fillComment}}};

}  // namespace

std::u16string number(std::uint64_t value) {
    return host::fromUtf8(std::to_string(value));
}

std::vector<MetadataPath> makePaths(std::size_t count) {
    constexpr std::size_t topFolders = 10;
    const std::size_t filesInFolder = std::min<std::size_t>(100, count / 100);
    std::vector<MetadataPath> paths;
    paths.reserve(count + filesInFolder + 1);
    for (std::size_t i = 0; paths.size() < count; ++i) {
        const PathElement top(u"Folder", u"component " + number(i % topFolders));
        const PathElement folder(u"Folder", u"module " + number(i / topFolders));
        if (i < topFolders)
            paths.push_back(MetadataPath({top}));
        paths.push_back(MetadataPath({top, folder}));
        for (std::size_t j = 0; j < filesInFolder; ++j)
            paths.push_back(MetadataPath({top, folder, PathElement(u"File", u"source " + number(j) + u".c")}));
    }
    paths.erase(paths.begin() + static_cast<std::ptrdiff_t>(count), paths.end());
    return paths;
}

std::shared_ptr<MetadataNode> makeNode(std::uint64_t revision) {
    auto node = std::make_shared<MetadataNodeSpecification>(u"Info");
    node->put(u"Name", u"a name of some length");
    node->put(u"Uuid", u"01234567-89ab-cdef-0123-456789abcdef");
    node->put(u"Revision", number(revision));
    node->put(u"Comment", u"caf\u00E9 \U0001F600");
    MetadataNode& child = node->createChildNode(u"Settings");
    child.put(u"Optimise", u"true");
    child.put(u"Level", u"2");
    return node;
}

std::unique_ptr<MetadataNode> makeTree(std::size_t nodes) {
    constexpr std::size_t deepest = 6;
    Values values;
    auto root = std::make_unique<MetadataNodeSpecification>(u"Project");
    fillSetting(*root, values, 0);
    std::vector<MetadataNode*> open = {root.get()};
    for (std::size_t i = 1; i < nodes; ++i) {
        const Kind& kind = kinds[i % kinds.size()];
        // A new folder lies in the current one, or in one of those above.
        if (&kind == &kinds.front()) {
            while (open.size() > 1 && (open.size() >= deepest || values.below(2) == 0))
                open.pop_back();
        }
        MetadataNode& node = open.back()->createChildNode(kind.name);
        kind.fill(node, values, i);
        if (&kind == &kinds.front())
            open.push_back(&node);
    }
    return root;
}

}  // namespace benchmarks
