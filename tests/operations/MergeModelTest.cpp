// Random three-way merges, judged by a model that knows of every path and child node who it is.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <random>
#include <set>
#include <sstream>

#include "host/Text.hpp"
#include "operations/TreeMerge.hpp"
#include "project/metadata/MetadataNodeSpecification.hpp"

namespace {

namespace pm = project::metadata;
using operations::MetadataTree;
using operations::PathTree;
using operations::TreeForm;

/// A path, or a child node. Nobody else has its id.
struct Entity {
    int id = 0;
    std::map<std::string, std::string> attributes;
    std::vector<Entity> paths;  // below a path
    std::vector<Entity> parts;  // child nodes of its node, or its own
    std::multiset<std::string> marks;

    bool operator==(const Entity& other) const {
        return id == other.id && attributes == other.attributes && paths == other.paths && parts == other.parts;
    }
};

using Children = std::vector<Entity>;

std::u16string text(const std::string& ascii) {
    return host::fromUtf8(ascii);
}

/// Which attribute shows who a child node is: one that is made for it, or any.
std::string keyOf(const Entity& parent) {
    return parent.id % 2 == 0 ? "Id" : "Serial";
}

std::shared_ptr<pm::MetadataNode> toNode(const Entity& entity, const std::string& name) {
    auto node = std::make_shared<pm::MetadataNodeSpecification>(text(name));
    for (const auto& [key, value] : entity.attributes)
        node->put(text(key), text(value));
    for (const Entity& part : entity.parts) {
        const auto child = toNode(part, part.id % 4 == 0 ? "Other" : "Part");
        if (part.id != 0)
            child->put(text(keyOf(entity)), text(std::to_string(part.id)));
        node->createChildNode(child->getName()).copy(*child);
    }
    return node;
}

PathTree toTree(const Entity& entity) {
    PathTree tree;
    tree.step = pm::PathElement(u"T", text(std::to_string(entity.id)));
    tree.node = toNode(entity, "Info");
    for (const Entity& path : entity.paths)
        tree.children.push_back(toTree(path));
    return tree;
}

MetadataTree toProject(const Entity& root) {
    MetadataTree tree;
    tree.form = TreeForm::project;
    tree.root = toTree(root);
    return tree;
}

Entity fromNode(const pm::MetadataNode& node) {
    Entity entity;
    for (const std::u16string& key : node.getAttributeKeys())
        entity.attributes[host::toUtf8(key)] = host::toUtf8(node.get(key));
    for (const char* const key : {"Id", "Serial"}) {
        if (entity.attributes.count(key) != 0)
            entity.id = std::stoi(entity.attributes[key]);
        entity.attributes.erase(key);
    }
    for (const auto& child : node.getChildNodes()) {
        if (child->getName() == operations::conflictName) {
            entity.marks.insert(
                host::toUtf8(child->get(u"What") + u' ' + child->get(u"Key") + child->get(u"RemovedBy")));
        } else {
            entity.parts.push_back(fromNode(*child));
        }
    }
    return entity;
}

Entity fromTree(const PathTree& tree) {
    Entity entity = fromNode(*tree.node);
    entity.id = std::atoi(host::toUtf8(tree.step.getLocation()).c_str());
    for (const PathTree& child : tree.children)
        entity.paths.push_back(fromTree(child));
    return entity;
}

/// For messages: the paths in brackets.
std::string outline(const Entity& entity) {
    std::string text = std::to_string(entity.id) + '{';
    for (const auto& [key, value] : entity.attributes)
        text += key + '=' + value + ' ';
    for (const std::string& mark : entity.marks)
        text += '!' + mark;
    for (const Entity& part : entity.parts)
        text += outline(part);
    text += '[';
    for (const Entity& path : entity.paths)
        text += outline(path);
    return text + "]}";
}

const Entity* find(const Children* children, int id) {
    if (!children)
        return nullptr;
    const auto found = std::find_if(children->begin(), children->end(), [&](const Entity& e) { return e.id == id; });
    return found == children->end() ? nullptr : &*found;
}

/// What people do.
class Author {
public:
    Author(std::mt19937& random, int firstId) : random_(random), nextId_(firstId) {}

    Entity makePath(int depth) {
        Entity entity = makePart(2);
        for (std::size_t count = depth > 0 ? pick(5) : 0; count > 0; --count)
            entity.paths.push_back(makePath(depth - 1));
        return entity;
    }

    Entity makePart(int depth) {
        Entity entity;
        entity.id = nextId_++;
        for (const char* const key : {"a", "b"})
            entity.attributes[key] = std::to_string(pick(3));
        for (std::size_t count = depth > 0 ? pick(6) : 0; count > 0; --count)
            entity.parts.push_back(makePart(depth - 1));
        // The only one of a name is known by that, unless it has an attribute that is made for it.
        for (const bool isOther : {false, true}) {
            const auto isOfName = [&](const Entity& part) { return (part.id % 4 == 0) == isOther; };
            auto& parts = entity.parts;
            if (keyOf(entity) == "Serial" && std::count_if(parts.begin(), parts.end(), isOfName) == 1)
                parts.erase(std::find_if(parts.begin(), parts.end(), isOfName));
        }
        return entity;
    }

    void change(Entity& root, int count) {
        for (; count > 0; --count) {
            std::vector<Entity*> paths, all;
            collect(root, paths, all);
            Entity& changed = *all[pick(all.size())];
            const bool isPath = pick(2) == 0;
            Children& list = isPath ? paths[pick(paths.size())]->paths : all[pick(all.size())]->parts;
            const std::size_t what = pick(10);
            if (what < 3)
                changeAttribute(changed);
            else if (what < 5)
                list.insert(at(list, pick(list.size() + 1)), isPath ? makePath(0) : makePart(0));
            else if (what < 7 && !list.empty())
                list.erase(at(list, pick(list.size())));
            else if (list.size() > 1)
                move(list);
        }
    }

    std::size_t pick(std::size_t count) { return std::uniform_int_distribution<std::size_t>(0, count - 1)(random_); }

    void move(Children& list) { move(list, pick(list.size())); }

    void move(Children& list, std::size_t from) {
        const Entity moved = list[from];
        list.erase(at(list, from));
        list.insert(at(list, pick(list.size() + 1)), moved);
    }

    static Children::iterator at(Children& list, std::size_t place) {
        return list.begin() + static_cast<std::ptrdiff_t>(place);
    }

private:
    void changeAttribute(Entity& entity) {
        const std::string key(1, static_cast<char>('a' + static_cast<char>(pick(3))));
        if (pick(3) == 0)
            entity.attributes.erase(key);
        else
            entity.attributes[key] = std::to_string(pick(3));
    }

    static void collect(Entity& path, std::vector<Entity*>& paths, std::vector<Entity*>& all) {
        paths.push_back(&path);
        for (Entity& child : path.paths)
            collect(child, paths, all);
        collectParts(path, all);
    }

    static void collectParts(Entity& entity, std::vector<Entity*>& all) {
        all.push_back(&entity);
        for (Entity& part : entity.parts)
            collectParts(part, all);
    }

    std::mt19937& random_;
    int nextId_;
};

/// What the model has found out.
struct Figures {
    int clean = 0, conflicting = 0;
    int moves = 0, pairs = 0;
    std::map<std::string, int> marks;
};

/// Compares a result with what the model says.
class Judge {
public:
    explicit Judge(Figures& figures) : figures_(figures) {}

    void judge(const Entity* base, const Entity& ours, const Entity& theirs, const Entity& result) {
        std::multiset<std::string> marks;
        std::set<std::string> keys;
        for (const Entity* side : {base, &ours, &theirs, &result}) {
            for (const auto& [key, value] : side ? side->attributes : std::map<std::string, std::string>())
                keys.insert(key);
        }
        for (const std::string& key : keys) {
            const auto get = [&](const Entity* side) {
                return side && side->attributes.count(key) != 0 ? side->attributes.at(key) : "none";
            };
            const std::string before = get(base), our = get(&ours), their = get(&theirs), merged = get(&result);
            if (our == their || their == before) {
                expect(merged == our, result.id, key + " should be ours");
            } else if (our == before) {
                expect(merged == their, result.id, key + " should be theirs");
            } else {
                expect(merged == our || (our == "none" && merged == their), result.id, key + " should be a side's");
                marks.insert("attribute " + key);
            }
        }
        judgeChildren(base ? &base->paths : nullptr, ours.paths, theirs.paths, result.paths, marks);
        judgeChildren(base ? &base->parts : nullptr, ours.parts, theirs.parts, result.parts, marks,
                      result.marks.count("children ") != 0);
        judgeMarks(marks, result);
    }

    std::string faults;

private:
    void expect(bool isRight, int id, const std::string& what) {
        if (!isRight)
            faults += std::to_string(id) + ": " + what + "\n";
    }

    void judgeMarks(const std::multiset<std::string>& expected, const Entity& result) {
        for (const std::string& mark : result.marks)
            ++figures_.marks[mark.substr(0, mark.find(' '))];
        auto known = result.marks;
        known.erase("children ");
        expect(expected == known, result.id, "other marks");
    }

    void judgeChildren(const Children* base, const Children& ours, const Children& theirs, const Children& result,
                       std::multiset<std::string>& marks, bool isUnclear = false) {
        std::set<int> ids;
        for (const Children* side : {base, &ours, &theirs, &result}) {
            for (const Entity& child : side ? *side : Children())
                expect(
                    ids.insert(child.id).second || side != &result || find(&ours, child.id) || find(&theirs, child.id),
                    child.id, "out of nowhere");
        }
        for (const int id : ids) {
            const Entity* const before = find(base, id);
            const Entity* const our = find(&ours, id);
            const Entity* const their = find(&theirs, id);
            const Entity* const merged = find(&result, id);
            const Entity* const kept = our ? our : their;
            const auto count = std::count_if(result.begin(), result.end(), [&](const Entity& e) { return e.id == id; });
            if (isUnclear && count > 1) {
                // Each side's is there by itself.
                for (const Entity* const side : {our, their})
                    expect(!side || (before && *side == *before) ||
                               std::find(result.begin(), result.end(), *side) != result.end(),
                           id, "is lost");
                continue;
            }
            expect(count <= 1, id, "several times");
            const bool isRemoved = before && (!our || !their);
            if (!kept || (isRemoved && *kept == *before)) {
                expect(!merged || isUnclear, id, "should be removed");
            } else if (!merged) {
                expect(false, id, "is lost");
            } else if (our && their) {
                judge(before, *our, *their, *merged);
            } else {
                Entity whole = *merged;
                expect(whole == *kept, id, "should be as one side has it");
                if (isRemoved && !(isUnclear && merged->marks.empty()))
                    judgeMarks({our ? "removed theirs" : "removed ours"}, *merged);
            }
        }
        if (!isUnclear)
            judgeOrder(base, ours, theirs, result, marks);
    }

    /// Whether `a` has to come before `b`; no value if no side has both, and `isSettled` if both sides have both.
    static std::optional<bool> isBefore(const Children* base, const Children& ours, const Children& theirs, int a,
                                        int b, bool& isSettled) {
        const auto inOrder = [&](const Children* side) -> std::optional<bool> {
            const Entity* const first = find(side, a);
            const Entity* const second = find(side, b);
            return first && second ? std::optional(first < second) : std::nullopt;
        };
        const auto before = inOrder(base), our = inOrder(&ours), their = inOrder(&theirs);
        isSettled = our && their;
        if (!our || !their)
            return our ? our : their;
        return our == their || !before ? our : !before.value();
    }

    void judgeOrder(const Children* base, const Children& ours, const Children& theirs, const Children& result,
                    std::multiset<std::string>& marks) {
        const std::size_t count = result.size();
        using Matrix = std::vector<std::vector<bool>>;
        Matrix settled(count, std::vector<bool>(count)), all = settled;
        for (std::size_t i = 0; i < count; ++i) {
            for (std::size_t j = 0; j < count; ++j) {
                bool isSettled = false;
                const auto before =
                    i == j ? std::nullopt : isBefore(base, ours, theirs, result[i].id, result[j].id, isSettled);
                all[i][j] = before.value_or(false);
                settled[i][j] = isSettled && before.value_or(false);
            }
        }
        const auto close = [&](Matrix reach) {
            for (std::size_t k = 0; k < count; ++k) {
                for (std::size_t i = 0; i < count; ++i) {
                    for (std::size_t j = 0; j < count; ++j)
                        reach[i][j] = reach[i][j] || (reach[i][k] && reach[k][j]);
                }
            }
            return reach;
        };
        const Matrix settledReach = close(settled), reach = close(all);
        bool isCircle = false;
        for (std::size_t i = 0; i < count; ++i) {
            isCircle = isCircle || settledReach[i][i];
            for (std::size_t j = i + 1; j < count; ++j) {
                figures_.pairs += all[i][j] || all[j][i] ? 1 : 0;
                // One side alone has exchanged the two.
                const Entity* const a = find(base, result[i].id);
                const Entity* const b = find(base, result[j].id);
                figures_.moves += settled[i][j] && a && b && b < a ? 1 : 0;
                const bool isTold = settled[j][i] && settledReach[i][j];
                const bool isImpossible = reach[i][j] && reach[j][i];
                expect(!all[j][i] || isTold || (!settled[j][i] && isImpossible), result[j].id,
                       "should be before " + std::to_string(result[i].id));
            }
        }
        if (isCircle)
            marks.insert("order ");
    }

    Figures& figures_;
};

int countOf(const char* variable, int usual) {
    const char* const text = std::getenv(variable);
    return text ? std::atoi(text) : usual;
}

TEST(MergeModelTest, NothingIsSilentlyWrong) {
    Figures figures;
    const int count = countOf("MERGE_MODEL_COUNT", 200);
    for (int seed = 0; seed < count; ++seed) {
        std::mt19937 random(static_cast<unsigned>(seed));
        const Entity base = Author(random, 1).makePath(seed % 2);
        Entity ours = base, theirs = base;
        Author(random, 10001).change(ours, 2 + seed % 12);
        Author(random, 20001).change(theirs, 2 + seed % 12);
        const auto result = mergeTrees(toProject(base), toProject(ours), toProject(theirs));
        Judge judge(figures);
        judge.judge(&base, ours, theirs, fromTree(result.tree.root));
        ASSERT_EQ(judge.faults, "") << "seed " << seed << '\n'
                                    << outline(base) << '\n'
                                    << outline(ours) << '\n'
                                    << outline(theirs) << '\n'
                                    << outline(fromTree(result.tree.root));
        ++(result.conflicts.empty() ? figures.clean : figures.conflicting);
    }
    std::ostringstream summary;
    summary << figures.clean << " clean, " << figures.conflicting << " with conflicts; " << figures.moves
            << " exchanged, " << figures.pairs << " pairs";
    for (const auto& [mark, number] : figures.marks)
        summary << "; " << mark << ' ' << number;
    std::printf("%s\n", summary.str().c_str());
    EXPECT_GT(figures.clean, count / 5);
    EXPECT_GT(figures.conflicting, count / 10);
    for (const char* const mark : {"attribute", "children", "order", "removed"})
        EXPECT_GT(figures.marks[mark], 0) << mark;
}

using Texts = std::multiset<std::string>;

std::string describe(const std::map<std::string, std::string>& attributes) {
    std::string text;
    for (const auto& [key, value] : attributes)
        text += key + '=' + value + ' ';
    return text;
}

Texts describe(const Children& children) {
    Texts texts;
    for (const Entity& child : children)
        texts.insert(describe(child.attributes));
    return texts;
}

/// The child nodes that the result has to have, unless there is a conflict.
Texts mergeTexts(const Children& base, const Children& ours, const Children& theirs, bool& isConflict) {
    std::set<int> ids;
    for (const Children* side : {&base, &ours, &theirs}) {
        for (const Entity& child : *side)
            ids.insert(child.id);
    }
    Texts texts;
    for (const int id : ids) {
        const Entity* const before = find(&base, id);
        const Entity* const our = find(&ours, id);
        const Entity* const their = find(&theirs, id);
        if (before && our && their) {
            std::map<std::string, std::string> merged;
            for (const auto& [key, value] : before->attributes) {
                const std::string& a = our->attributes.at(key);
                const std::string& b = their->attributes.at(key);
                isConflict = isConflict || (a != b && a != value && b != value);
                merged[key] = a == value ? b : a;
            }
            texts.insert(describe(merged));
        } else if (!before || (our && our->attributes != before->attributes) ||
                   (their && their->attributes != before->attributes)) {
            isConflict = isConflict || before;
            texts.insert(describe((our ? our : their)->attributes));
        }
    }
    return texts;
}

/// Nothing tells the child nodes apart, and some are equal. Where a merge is clean, it must be what the model says.
/// What both sides have made alike counts as the same.
TEST(MergeModelTest, NothingIsSilentlyWrongWithoutIdentity) {
    int clean = 0, conflicting = 0, doubtful = 0;
    const int count = 5 * countOf("MERGE_MODEL_COUNT", 200);
    for (int seed = 0; seed < count; ++seed) {
        std::mt19937 random(static_cast<unsigned>(seed));
        Author author(random, 1);
        int fresh = 100;
        const auto make = [&](int id, bool isCommon) {
            Entity part;
            part.id = id;
            for (const char* const key : {"a", "b", "c"})
                part.attributes[key] = isCommon ? "same" : std::to_string(fresh++ / (key[0] == 'c' ? 1 : 2));
            return part;
        };
        Children base;
        for (std::size_t i = 0, size = 2 + author.pick(8); i < size; ++i)
            base.push_back(make(static_cast<int>(i) + 1, author.pick(2) == 0));
        const auto change = [&](int firstId) {
            Children side = base;
            std::set<int> touched;
            // A change of one of several equal ones, and a move of another, would look like something else.
            const std::size_t refused = author.pick(2) == 0 ? 1 : 3;
            for (std::size_t i = 0, changes = 1 + author.pick(3); i < changes; ++i) {
                const std::size_t place = author.pick(side.size() + 1);
                const std::size_t what = author.pick(4);
                if (place == side.size() || what == 0)
                    side.insert(Author::at(side, place), make(firstId++, false));
                else if (!touched.insert(side[place].id).second || side[place].id >= 1000 ||
                         (what == refused && side[place].attributes["a"] == "same"))
                    continue;
                else if (what == 1)
                    side[place].attributes[std::string(1, "abc"[author.pick(3)])] = std::to_string(fresh++);
                else if (what == 2)
                    side.erase(Author::at(side, place));
                else
                    author.move(side, place);
            }
            return side;
        };
        const Children ours = change(1000), theirs = change(2000);
        const auto toTreeOf = [](const Children& parts) {
            Entity entity;
            entity.parts = parts;
            for (Entity& part : entity.parts)
                part.id = 0;
            return toProject(entity);
        };
        if (describe(ours) == describe(theirs))
            continue;
        const auto result = mergeTrees(toTreeOf(base), toTreeOf(ours), toTreeOf(theirs));
        bool isConflict = false;
        const auto expected = mergeTexts(base, ours, theirs, isConflict);
        if (result.conflicts.empty()) {
            Entity whole[] = {{}, {}, {}, fromTree(result.tree.root)};
            whole[0].parts = base;
            whole[1].parts = ours;
            whole[2].parts = theirs;
            std::string outlines = "seed " + std::to_string(seed);
            for (const Entity& entity : whole)
                outlines += '\n' + outline(entity);
            ASSERT_FALSE(isConflict) << outlines;
            ASSERT_EQ(describe(whole[3].parts), expected) << outlines;
            ++clean;
        } else {
            ++(isConflict ? conflicting : doubtful);
        }
    }
    std::printf("%d clean, %d with conflicts, %d in doubt\n", clean, conflicting, doubtful);
    EXPECT_GT(clean, count / 5);
    EXPECT_GT(conflicting, count / 40);
    EXPECT_GT(doubtful, 0);
    EXPECT_LT(doubtful, count / 4);
}

}  // namespace
