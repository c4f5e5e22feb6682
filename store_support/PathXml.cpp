#include "store_support/PathXml.hpp"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>
#include <vector>

#include "project/metadata/AttributeRules.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"
#include "project/metadata/SharedNode.hpp"
#include "store_support/HexDigits.hpp"

namespace store_support {

using project::metadata::MetadataNodeSpecification;
using project::metadata::XmlSink;

const std::u16string& projectElementName = *new std::u16string(u"Project");
const std::u16string& pathElementName = *new std::u16string(u"Path");
const std::u16string& nodeElementName = *new std::u16string(u"Node");

namespace {

/// The keys of a text of a path element: of itself and, if XML cannot hold it, of its escaped form, which counts then.
struct TextKeys {
    std::u16string plain;
    std::u16string escaped;
};

const std::array<TextKeys, 2>& textKeys =
    *new std::array<TextKeys, 2>{{{u"Type", u"EscapedType"}, {u"Location", u"EscapedLocation"}}};

/// What an element says by these keys; null for what it does not say.
struct TextValues {
    const std::u16string* plain = nullptr;
    const std::u16string* escaped = nullptr;
};

std::array<TextValues, 2> findTexts(const MetadataNode& xml) {
    std::array<TextValues, 2> found;
    project::metadata::visitAttributes(xml, [&](const std::u16string& key, const std::u16string& value) {
        for (std::size_t i = 0; i < textKeys.size(); ++i) {
            if (key == textKeys[i].plain)
                found[i].plain = &value;
            else if (key == textKeys[i].escaped && !value.empty())
                found[i].escaped = &value;
        }
    });
    return found;
}

/// Everything but printable ASCII is escaped: such texts are rare, and this way there is nothing to get wrong.
std::u16string escape(const std::u16string& text) {
    std::u16string escaped;
    for (const char16_t unit : text) {
        if (unit == u'\\')
            escaped += u"\\\\";
        else if (unit >= 0x20 && unit < 0x7F)
            escaped += unit;
        else
            escaped += u"\\u" + toHex(unit, 4);
    }
    return escaped;
}

/// No value if `escaped` is not what `escape` makes.
std::optional<std::u16string> unescape(const std::u16string& escaped) {
    std::u16string text;
    for (std::size_t i = 0; i < escaped.size(); ++i) {
        if (escaped[i] != u'\\') {
            text += escaped[i];
        } else if (escaped.compare(i, 2, u"\\\\") == 0) {
            text += u'\\';
            ++i;
        } else {
            const std::u16string digits = escaped.substr(i + 1, 5);
            const auto unit = digits.size() == 5 && digits[0] == u'u' ? fromHex(digits.substr(1)) : std::nullopt;
            if (!unit)
                return std::nullopt;
            text += *unit;
            i += 5;
        }
    }
    return text;
}

template <class Xml>
void putText(Xml& xml, const TextKeys& keys, const std::u16string& text) {
    if (survivesXml(text))
        xml.put(keys.plain, text);
    else
        xml.put(keys.escaped, escape(text));
}

template <class Xml>
void putElement(Xml& xml, const PathElement& element) {
    putText(xml, textKeys[0], element.getType());
    putText(xml, textKeys[1], element.getLocation());
}

/// An element that may have any node as a child.
class SharingElement : public MetadataNodeSpecification {
public:
    using MetadataNodeSpecification::MetadataNodeSpecification;

    const std::vector<std::shared_ptr<MetadataNode>>& getChildNodes() const override { return children_; }

    void add(std::shared_ptr<MetadataNode> child) { children_.push_back(std::move(child)); }

private:
    std::vector<std::shared_ptr<MetadataNode>> children_;
};

class NodeMaker : public XmlSink {
public:
    void begin(const std::u16string& name) override {
        auto element = std::make_shared<SharingElement>(name);
        open_.push_back(element.get());
        if (root_)
            open_[open_.size() - 2]->add(std::move(element));
        else
            root_ = std::move(element);
    }
    void put(const std::u16string& key, const std::u16string& value) override { open_.back()->put(key, value); }
    void add(const std::shared_ptr<const MetadataNode>& node) override {
        // Whoever gets the root can only read, so that no child nodes need be made of what a copy shares.
        const std::shared_ptr<const MetadataNode> shared(node, &project::metadata::getShared(*node));
        open_.back()->add(std::const_pointer_cast<MetadataNode>(shared));
    }
    void end() override { open_.pop_back(); }

    const std::shared_ptr<const MetadataNode>& getRoot() const noexcept { return root_; }

private:
    std::shared_ptr<const MetadataNode> root_;
    std::vector<SharingElement*> open_;
};

std::u16string describeAttribute(const std::u16string& key, const MetadataNode& xml) {
    return u"an attribute \"" + key + u"\" of <" + xml.getName() + u">";
}

}  // namespace

bool survivesXml(const std::u16string& text) {
    const bool hasOnlySafeUnits =
        std::all_of(text.begin(), text.end(), [](char16_t unit) { return unit >= 0x20 && unit < 0xD800; });
    return hasOnlySafeUnits || (project::metadata::isValidAttribute(text) && fromUtf8(toUtf8(text)) == text);
}

void putPathElement(MetadataNode& xml, const PathElement& element) {
    putElement(xml, element);
}

void putPathElement(XmlSink& xml, const PathElement& element) {
    putElement(xml, element);
}

PathElement getPathElement(const MetadataNode& xml, const Path& file) {
    if (xml.getName() != pathElementName) {
        raise<MetadataReadFailure>(file.text(),
                                   u"it holds <" + xml.getName() + u"> where <" + pathElementName + u"> is expected");
    }
    const auto values = findTexts(xml);
    std::array<std::u16string, 2> unescaped;
    const auto getText = [&](std::size_t i) -> const std::u16string& {
        if (!values[i].escaped)  // an absent attribute is the empty text
            return values[i].plain ? *values[i].plain : unescaped[i];
        auto text = unescape(*values[i].escaped);
        if (!text)
            raise<MetadataReadFailure>(file.text(), u"the value of " + textKeys[i].escaped + u" is malformed");
        return unescaped[i] = *std::move(text);
    };
    return {getText(0), getText(1)};
}

std::u16string findForeign(const MetadataNode& xml, std::initializer_list<std::u16string_view> moreKeys,
                           bool mayHavePaths) {
    const bool isPath = xml.getName() == pathElementName;
    if (!isPath && xml.getName() != projectElementName)
        return u"<" + xml.getName() + u"> where <" + projectElementName + u"> is expected";
    const auto texts = isPath ? findTexts(xml) : std::array<TextValues, 2>();
    const auto isText = [&](const std::u16string& key) {
        for (std::size_t i = 0; i < textKeys.size(); ++i) {
            if (key == textKeys[i].escaped || (key == textKeys[i].plain && !texts[i].escaped))
                return true;
        }
        return false;
    };
    std::u16string foreign;
    project::metadata::visitAttributes(xml, [&](const std::u16string& key, const std::u16string& /*value*/) {
        if (foreign.empty() && std::find(moreKeys.begin(), moreKeys.end(), key) == moreKeys.end() &&
            !(isPath && isText(key)))
            foreign = describeAttribute(key, xml);
    });
    if (!foreign.empty())
        return foreign;
    for (const auto& child : xml.getChildNodes()) {
        const bool isNode = child->getName() == nodeElementName;
        if (!isNode && !mayHavePaths)
            return u"<" + child->getName() + u"> in <" + xml.getName() + u">";
        if (const auto keys = isNode ? child->getAttributeKeys() : std::vector<std::u16string>(); !keys.empty())
            return describeAttribute(keys.front(), *child);
    }
    return {};
}

void putNode(MetadataNode& xml, const MetadataNode* node) {
    if (!node)
        return;
    xml.createChildNode(nodeElementName).createChildNode(node->getName()).copy(*node);
}

void putNode(XmlSink& xml, const std::shared_ptr<const MetadataNode>& node) {
    if (!node)
        return;
    xml.begin(nodeElementName);
    xml.add(node);
    xml.end();
}

std::shared_ptr<const MetadataNode> makeNodes(const std::function<void(XmlSink& sink)>& tell) {
    NodeMaker maker;
    tell(maker);
    return maker.getRoot();
}

std::shared_ptr<MetadataNode> getNode(const MetadataNode& xml, const Path& file) {
    std::shared_ptr<MetadataNode> node;
    for (const auto& child : xml.getChildNodes()) {
        if (child->getName() != nodeElementName)
            continue;
        if (node || child->getChildNodes().size() != 1) {
            raise<MetadataReadFailure>(file.text(), u"a <" + nodeElementName +
                                                        u"> in it does not hold the one node of "
                                                        u"its path");
        }
        node = child->getChildNodes().front();
    }
    return node;
}

}  // namespace store_support
