/// Compares what the library reads with what libxml2's text reader says, for files and for documents that are made up.
///
///     xml_compare mutated COUNT [SEED]    COUNT documents, changed at random
///     xml_compare files                   the files whose names come on standard input, one in a line
///
/// Prints what differs and how the documents came out. The status is 1 if anything differs.
#include <cstdlib>
#include <iostream>
#include <map>
#include <random>

#include "host/Text.hpp"
#include "project/metadata/MetadataXml.hpp"
#include "project/metadata/detail/PlainParser.hpp"
#include "project/metadata/detail/SilentXml.hpp"
#include "tests/metadata/Helpers.hpp"
#include "tests/metadata/XmlDocuments.hpp"
#include "tests/metadata/XmlOracle.hpp"
#include "tests/support/TempFolder.hpp"

namespace {

using test::readByLibrary;
using test::readByOracle;

class Comparison {
public:
    void compare(const std::string& file, const std::string& name);

    /// @return the exit status
    int report() const;

private:
    std::map<std::string, std::size_t> outcomes_;
    std::size_t differenceCount_ = 0;
};

/// In a few words.
std::string kindOf(const std::u16string& outcome) {
    if (outcome == u"unreadable")
        return "not well-formed";
    if (outcome.find(u"refused") == 0)
        return host::toUtf8(outcome.substr(0, outcome.find(u' ', 8)));
    return "read";
}

void Comparison::compare(const std::string& file, const std::string& name) {
    const project::metadata::detail::SilentXml silent;
    host::InputFileStream stream(file, std::ios::binary);
    const auto plain = project::metadata::detail::parsePlainDocument(
        stream, project::metadata::detail::Extent::wholeTree, project::metadata::detail::Rest::isPassedOver);
    const auto inOnePiece = project::metadata::readPlainBytes(test::readBytes(file));
    ++outcomes_[plain.root ? "taken by the fast way"
                           : "left to the text reader: " + std::to_string(static_cast<int>(plain.obstacle))];
    for (const bool isRootOnly : {false, true}) {
        const std::u16string found = readByLibrary(file, isRootOnly);
        ++outcomes_[(isRootOnly ? "root: " : "tree: ") + kindOf(found)];
        // libxml2 itself does not always come back from these.
        if (found.find(u"refused: ") == 0)
            continue;
        const std::u16string expected = readByOracle(file, isRootOnly);
        const bool isSameInOnePiece = isRootOnly || !inOnePiece || test::render(*inOnePiece) == expected;
        if (found == expected && isSameInOnePiece)
            continue;
        ++differenceCount_;
        std::cout << name << (isRootOnly ? " (root)" : "") << ": " << host::toUtf8(found).substr(0, 500)
                  << "\n    instead of " << host::toUtf8(expected).substr(0, 500) << '\n';
    }
}

int Comparison::report() const {
    for (const auto& [outcome, count] : outcomes_)
        std::cout << outcome << ": " << count << '\n';
    std::cout << differenceCount_ << " differences\n";
    return differenceCount_ == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

class Mutator {
public:
    explicit Mutator(std::uint64_t seed) : random_(seed) {
        constexpr std::size_t maxSize = 3'000;
        for (const test::XmlGroup& group : test::allXmlGroups()) {
            // Of the truncated document only the whole one is of interest.
            const bool isCut = group.name == std::string("truncations");
            for (const std::string& document : group.documents) {
                if (document.size() <= maxSize && (!isCut || document == group.documents.back()))
                    documents_.insert(documents_.end(), isCut ? 20 : 1, document);
            }
        }
    }

    std::string make() {
        std::string document = pick(documents_);
        for (std::size_t changes = 1 + below(2) * below(3); changes > 0; --changes)
            change(document);
        return document;
    }

private:
    std::size_t below(std::size_t end) { return std::uniform_int_distribution<std::size_t>(0, end - 1)(random_); }
    const std::string& pick(const std::vector<std::string>& texts) { return texts[below(texts.size())]; }

    void change(std::string& document) {
        static const std::vector<std::string> pieces = {"<",
                                                        ">",
                                                        "/>",
                                                        "</",
                                                        "&",
                                                        ";",
                                                        "'",
                                                        "\"",
                                                        "=",
                                                        " ",
                                                        "\n",
                                                        "\r\n",
                                                        "\t",
                                                        "<a/>",
                                                        "<r>",
                                                        "</r>",
                                                        "<s k='v'>",
                                                        "</s>",
                                                        " k='v'",
                                                        " a='1'",
                                                        " p:a='1'",
                                                        " xmlns='http://u'",
                                                        " xmlns:p='http://u'",
                                                        " xmlns:q='v'",
                                                        " xml:lang='de'",
                                                        "p:",
                                                        ":",
                                                        "&amp;",
                                                        "&lt;",
                                                        "&#38;",
                                                        "&#x10001;",
                                                        "&#0;",
                                                        "&e;",
                                                        "&f;",
                                                        "&no;",
                                                        "<!DOCTYPE r>",
                                                        "<!DOCTYPE r [",
                                                        "]>",
                                                        "<!ENTITY e 'v'>",
                                                        "<!ENTITY f '&e;'>",
                                                        "<!ATTLIST r a CDATA 'd'>",
                                                        "<!ATTLIST s k NMTOKEN ' x '>",
                                                        "<!--",
                                                        "-->",
                                                        "<![CDATA[",
                                                        "]]>",
                                                        "<?p?>",
                                                        "<?xml version='1.0'?>",
                                                        "encoding='ISO-8859-1'",
                                                        "\xEF\xBB\xBF",
                                                        "\xFF\xFE",
                                                        "\xC3\xA4",
                                                        "\xC3",
                                                        "\xF0\x9F\x98\x80",
                                                        "\xED\xA0\x80",
                                                        "\xEF\xBF\xBE",
                                                        "\x81",
                                                        std::string(1, '\0'),
                                                        std::string(600, ' '),
                                                        std::string(5'000, 'x'),
                                                        std::string(33'000, '\n')};
        const std::size_t at = below(document.size() + 1);
        const std::size_t size = std::min(document.size() - at, 1 + below(12));
        switch (below(7)) {
            case 0:
                document.erase(at, size);
                break;
            case 1:
                document.insert(at, document.substr(below(document.size() + 1), 1 + below(40)));
                break;
            case 2:
                if (at < document.size())
                    document[at] = static_cast<char>(below(256));
                break;
            case 3:
                document.resize(at);
                break;
            case 4: {
                const std::string& other = pick(documents_);
                document = document.substr(0, at) + other.substr(below(other.size() + 1));
                break;
            }
            default:
                document.insert(at, pick(pieces));
        }
    }

    std::mt19937_64 random_;
    std::vector<std::string> documents_;
};

int compareMutated(std::size_t count, std::uint64_t seed) {
    const test::TempFolder folder;
    const std::string file = folder / "file.xml";
    Mutator mutator(seed);
    Comparison comparison;
    for (std::size_t i = 0; i < count; ++i) {
        const std::string document = mutator.make();
        test::writeBytes(file, document);
        comparison.compare(file, document);
    }
    return comparison.report();
}

int compareFiles() {
    Comparison comparison;
    for (std::string name; std::getline(std::cin, name);)
        comparison.compare(name, name);
    return comparison.report();
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.size() == 1 && arguments[0] == "files")
        return compareFiles();
    if (arguments.size() >= 2 && arguments[0] == "mutated")
        return compareMutated(std::stoul(arguments[1]), arguments.size() > 2 ? std::stoul(arguments[2]) : 1);
    std::cerr << "usage: xml_compare mutated COUNT [SEED] | xml_compare files\n";
    return 2;
}
