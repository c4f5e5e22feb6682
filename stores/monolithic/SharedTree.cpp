// The file format: the core file "Project.xml", whose root node holds the paths as nested elements.
//
//     <Project MetadataType="monolithic">
//         <Path Location="src" Type="Folder">
//             <Node>
//                 <Info Kind="folder"/>
//             </Node>
//             <Path Location="main.c" Type="File"/>
//         </Path>
//     </Project>
//
// PathXml.hpp says what an element "Path" holds; the root element holds a "Node" if the root path has one. The order of
// the elements is the order of the paths.

#include "stores/monolithic/SharedTree.hpp"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "project/metadata/MetadataNodeSpecification.hpp"
#include "store_support/EqualTrees.hpp"
#include "store_support/PathXml.hpp"
#include "store_support/StoreErrors.hpp"
#include "stores/monolithic/MonolithicManager.hpp"

namespace stores::monolithic {

using project::metadata::MetadataNodeSpecification;
using project::metadata::PathSink;
using project::metadata::XmlSink;

namespace {

/// Adds what `xml` holds below its own path.
class Reader {
public:
    Reader(const Path& file, Elements elements, const std::vector<Lack>& lacks, std::vector<MetadataDamage>& damage)
        : file_(file), elements_(elements), damage_(damage) {
        for (const Lack& lack : lacks) {
            lacking_.emplace(lack.node, damage.size());
            damage.push_back({file, lack.problem});
        }
    }

    void fill(SharedTree& tree, MetadataNode& xml) {
        attempt(
            [&] {
                const auto node = getNode(xml, file_);
                if (const auto lack = node ? placeLacks(*node) : nullptr)
                    tree.setProblem(lack);
                else
                    tree.node = node;
            },
            &tree);
        const bool isPath = xml.getName() == pathElementName;
        const auto foreign = isPath ? findForeign(xml, {}, true) : findForeign(xml, {metadataTypeKey()}, true);
        if (!foreign.empty())
            damage_.push_back({file_, describeLoss(foreign), false, true, false, MetadataPath(steps_)});
        // All that is read from files is of this type.
        auto children = elements_ == Elements::go ? dynamic_cast<MetadataNodeSpecification&>(xml).takeChildNodes()
                                                  : xml.getChildNodes();
        const std::size_t count = children.size() - (tree.node ? 1 : 0);
        if (count > 0)
            tree.reserve(count);
        for (auto& child : children) {
            if (child->getName() != nodeElementName) {
                if (lacking_.count(child.get()) == 0)
                    attempt([&] { add(tree, *child); });
                else
                    placeLacks(*child);
            }
            child.reset();
        }
    }

private:
    void add(SharedTree& tree, MetadataNode& xml) {
        steps_.push_back(getPathElement(xml, file_));
        if (tree.find(steps_.back()))
            raise<MetadataReadFailure>(file_.text(), u"a path element stands twice under one parent in it");
        fill(tree.add(steps_.back()), xml);
    }

    /// Notes that what the tree `node` lacks is at the current path. @return one of it, null if it lacks nothing
    std::shared_ptr<const std::u16string> placeLacks(const MetadataNode& node) {
        std::shared_ptr<const std::u16string> found;
        if (lacking_.empty())
            return found;
        const auto [begin, end] = lacking_.equal_range(&node);
        for (auto lack = begin; lack != end; ++lack) {
            damage_[lack->second].path = MetadataPath(steps_);
            found = std::make_shared<const std::u16string>(damage_[lack->second].problem);
        }
        for (const auto& child : node.getChildNodes()) {
            if (auto below = placeLacks(*child); !found)
                found = std::move(below);
        }
        return found;
    }

    template <class Step>
    void attempt(const Step& step, SharedTree* damaged = nullptr) {
        const std::size_t depth = steps_.size();
        try {
            step();
        } catch (const MetadataReadFailure& error) {
            damage_.push_back({file_, getReadProblem(error), false, false, false, MetadataPath(steps_)});
            if (damaged)
                damaged->setProblem(std::make_shared<const std::u16string>(damage_.back().problem));
        }
        steps_.erase(steps_.begin() + static_cast<std::ptrdiff_t>(depth), steps_.end());
    }

    const Path& file_;
    const Elements elements_;
    std::unordered_multimap<const MetadataNode*, std::size_t> lacking_;  // places in `damage_`
    std::vector<MetadataDamage>& damage_;
    std::vector<PathElement> steps_;  // of the current path
};

void tell(const PathElement& step, const SharedTree& tree, PathSink& sink) {
    sink.begin(step, tree.node);
    for (const SharedTree::Child& child : tree.getChildren())
        tell(child.element, child.tree, sink);
    sink.end();
}

std::size_t hash(const PathElement& element) {
    const std::hash<std::u16string_view> hash;
    constexpr std::size_t factor = 1099511628211U;  // of the FNV hash
    return hash(element.getType()) * factor ^ hash(element.getLocation());
}

/// Fewer children are looked through.
constexpr std::size_t leastForTable = 16;

}  // namespace

/// The children of a path, and what is rare: most paths have neither.
struct SharedTree::Below {
    std::vector<Child> children;
    bool hasGaps = false;  // whether some of them were removed
    // Places in `children` plus one, each near the hash of its element, 0 where nothing is. Empty while there are few
    // children, or until it is needed again.
    std::vector<std::uint32_t> places;
    std::size_t last = 0;  // what was found last: mostly the same or the next one is wanted next
    std::shared_ptr<const std::u16string> problem;

    /// Where the child `element` is, or the number of children if there is none.
    std::size_t findPlace(const PathElement& element);

    /// Enters what is at `place` into the table.
    void enterPlace(std::size_t place);
};

SharedTree::Below& SharedTree::ownBelow() {
    if (!below_)
        below_ = std::make_shared<Below>();
    else if (below_.use_count() > 1)
        below_ = std::make_shared<Below>(*below_);
    return *below_;
}

std::shared_ptr<const std::u16string> SharedTree::getProblem() const {
    return below_ ? below_->problem : nullptr;
}

void SharedTree::setProblem(std::shared_ptr<const std::u16string> problem) {
    ownBelow().problem = std::move(problem);
}

const SharedTree* SharedTree::find(const PathElement& element) const {
    const std::size_t place = below_ ? below_->findPlace(element) : 0;
    return !below_ || place == below_->children.size() ? nullptr : &below_->children[place].tree;
}

const SharedTree* SharedTree::find(const std::vector<PathElement>& steps) const {
    const SharedTree* tree = this;
    for (const PathElement& element : steps) {
        tree = tree->find(element);
        if (!tree)
            return nullptr;
    }
    return tree;
}

SharedTree* SharedTree::own(const PathElement& element) {
    if (!find(element))
        return nullptr;
    Below& below = ownBelow();
    return &below.children[below.findPlace(element)].tree;
}

SharedTree& SharedTree::add(const PathElement& element) {
    if (SharedTree* const existing = own(element))
        return *existing;
    Below& below = ownBelow();
    below.children.push_back({element, {}});
    below.last = below.children.size() - 1;
    if (2 * below.children.size() <= below.places.size())
        below.enterPlace(below.last);
    else
        below.places.clear();
    return below.children.back().tree;
}

void SharedTree::reserve(std::size_t count) {
    ownBelow().children.reserve(count);
}

void SharedTree::rename(const PathElement& element, const PathElement& newElement) {
    Below& below = ownBelow();
    below.children[below.findPlace(element)].element = newElement;
    below.places.clear();
}

void SharedTree::remove(const PathElement& element) {
    SharedTree* const removed = own(element);
    if (!removed)
        return;
    *removed = SharedTree();
    removed->isRemoved_ = true;
    below_->hasGaps = true;
}

const std::vector<SharedTree::Child>& SharedTree::getChildren() const {
    static const auto& none = *new std::vector<Child>();
    if (!below_)
        return none;
    auto& children = below_->children;
    if (below_->hasGaps) {
        children.erase(
            std::remove_if(children.begin(), children.end(), [](const Child& child) { return child.tree.isRemoved_; }),
            children.end());
        below_->places.clear();
        below_->hasGaps = false;
    }
    return children;
}

std::size_t SharedTree::Below::findPlace(const PathElement& element) {
    const auto isAt = [&](std::size_t place) {
        return !children[place].tree.isRemoved_ && children[place].element == element;
    };
    for (std::size_t place = last; place < children.size() && place <= last + 1; ++place) {
        if (isAt(place))
            return last = place;
    }
    if (children.size() < leastForTable) {
        for (std::size_t place = 0; place < children.size(); ++place) {
            if (isAt(place))
                return last = place;
        }
        return children.size();
    }
    if (places.empty()) {
        std::size_t size = leastForTable;
        while (size < 4 * children.size())
            size *= 2;
        places.assign(size, 0);
        for (std::size_t place = 0; place < children.size(); ++place)
            enterPlace(place);
    }
    for (std::size_t i = hash(element);; ++i) {
        const std::size_t entry = places[i & (places.size() - 1)];
        if (entry == 0)
            return children.size();
        if (isAt(entry - 1))
            return last = entry - 1;
    }
}

void SharedTree::Below::enterPlace(std::size_t place) {
    std::size_t i = hash(children[place].element);
    while (places[i & (places.size() - 1)] != 0)
        ++i;
    places[i & (places.size() - 1)] = static_cast<std::uint32_t>(place + 1);
}

SharedTree fromXml(MetadataNode& xml, Elements elements, const std::vector<Lack>& lacks, const Path& file,
                   std::vector<MetadataDamage>& damage) {
    SharedTree tree;
    Reader(file, elements, lacks, damage).fill(tree, xml);
    return tree;
}

void markUnseen(const SharedTree& now, const SharedTree* before) {
    const bool isSame = before && equalTrees(now.node.get(), before->node.get());
    now.isUnseen = !isSame || before->isUnseen;
    for (const SharedTree::Child& child : now.getChildren())
        markUnseen(child.tree, before ? before->find(child.element) : nullptr);
}

void findGone(const SharedTree& before, const SharedTree* now, std::vector<PathElement>& steps,
              std::set<std::vector<PathElement>>& gone) {
    if (before.hasNode() && !before.isUnseen && !(now && now->hasNode() && !now->isUnseen))
        gone.insert(steps);
    for (const SharedTree::Child& child : before.getChildren()) {
        steps.push_back(child.element);
        findGone(child.tree, now ? now->find(child.element) : nullptr, steps, gone);
        steps.pop_back();
    }
}

bool isAllSeen(const SharedTree& tree) {
    const auto& children = tree.getChildren();
    return !tree.isUnseen && std::all_of(children.begin(), children.end(),
                                         [](const SharedTree::Child& child) { return isAllSeen(child.tree); });
}

void tellPaths(const SharedTree& tree, PathSink& sink) {
    tell({{}, {}}, tree, sink);
}

void XmlPaths::begin(const PathElement& step, const std::shared_ptr<const MetadataNode>& node) {
    if (hasRoot_) {
        xml_.begin(pathElementName);
        putPathElement(xml_, step);
    } else {
        xml_.begin(projectElementName);
        xml_.put(metadataTypeKey(), monolithicName);
        hasRoot_ = true;
    }
    putNode(xml_, node);
}

void tellXml(const SharedTree& tree, XmlSink& sink) {
    XmlPaths paths(sink);
    tellPaths(tree, paths);
}

std::shared_ptr<const MetadataNode> toXml(const SharedTree& tree) {
    return makeNodes([&](XmlSink& sink) { tellXml(tree, sink); });
}

bool isSameTree(const SharedTree& a, const SharedTree& b) {
    if (a.sharesChildren(b))
        return a.node == b.node;
    const auto& childrenA = a.getChildren();
    const auto& childrenB = b.getChildren();
    return a.node == b.node && std::equal(childrenA.begin(), childrenA.end(), childrenB.begin(), childrenB.end(),
                                          [](const SharedTree::Child& x, const SharedTree::Child& y) {
                                              return x.element == y.element && isSameTree(x.tree, y.tree);
                                          });
}

}  // namespace stores::monolithic
