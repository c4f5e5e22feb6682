// Names of files both ways: a name belongs to one path element, and a path element to one name.

#include "fuzz/Fuzz.hpp"
#include "stores/fixed_path/NodeFileName.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::u16string text;
    for (std::size_t i = 0; i + 1 < size; i += 2)
        text += static_cast<char16_t>(data[i] | data[i + 1] << 8);
    if (const auto element = stores::fixed_path::parseNodeFolderName(text))
        fuzz::require(stores::fixed_path::nodeFolderName(*element) == text);
    const std::size_t middle = text.find(u'\0') == text.npos ? text.size() / 2 : text.find(u'\0');
    const project::metadata::PathElement element(text.substr(0, middle), text.substr(middle));
    const std::u16string name = stores::fixed_path::nodeFolderName(element);
    fuzz::require(name.size() < 256 && name.find(u'/') == name.npos && name.find(u'=') != name.npos && name[0] != u'.');
    const auto parsed = stores::fixed_path::parseNodeFolderName(name);
    fuzz::require(!parsed ? name.find(u"=~") != name.npos : *parsed == element);
    return 0;
}
