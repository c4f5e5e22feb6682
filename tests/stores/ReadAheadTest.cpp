// How few questions a server of a project that is larger than what a store keeps is asked.

#include "stores/postgresql/ReadAhead.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <map>
#include <random>
#include <stdexcept>
#include <string>

#include "host/Text.hpp"

using namespace stores::postgresql;

namespace {

/// A project of folders with files, the nodes of which take 200 MB, and a count of what is asked for.
class ReadAheadTest : public testing::Test {
protected:
    static constexpr int folders = 100;
    static constexpr int files = 200;

    ReadAheadTest() {
        add({rootId, rootId, project::metadata::PathElement(u"", u""), 0, true, {}, 1});
        for (int i = 0; i < folders; ++i) {
            const PathId folder = addChild(rootId, i);
            for (int j = 0; j < files; ++j)
                files_.push_back(addChild(folder, j));
        }
    }

    const Row* read(const PathId& wanted) {
        if (!ahead_.isKnown(wanted))
            ask(ahead_.getRowQuestion(wanted));
        return ahead_.find(wanted);
    }

    std::vector<PathId> readChildren(const PathId& parent) {
        auto rows = ahead_.findChildren(parent);
        if (!rows) {
            ask(ahead_.getQuestion(parent));
            rows = ahead_.findChildren(parent);
        }
        if (!rows)
            throw std::logic_error("the answer is forgotten at once");
        std::vector<PathId> children;
        for (const Row* const row : *rows)
            children.push_back(row->id);
        return children;
    }

    std::vector<PathId> files_;
    std::size_t questions_ = 0;
    std::size_t rows_ = 0;

private:
    void add(Row row) { paths_.emplace(row.id, std::move(row)); }

    PathId addChild(const PathId& parent, int number) {
        const project::metadata::PathElement element(u"Path", host::fromUtf8(std::to_string(number)));
        const PathId id = getChildId(parent, element);
        add({id, parent, element, number, true, {}, 1});
        children_[parent].push_back(id);
        return id;
    }

    Row getRow(const PathId& id) const {
        Row row = paths_.at(id);
        row.node = std::string(10000, 'x');
        return row;
    }

    void ask(const Question& question) {
        Answer answer;
        answer.batch = 1;
        for (const PathId& id : question.rows) {
            if (paths_.count(id) > 0)
                answer.rows.emplace(id, getRow(id));
        }
        for (const PathId& parent : question.childrenOf) {
            for (const PathId& id : children_[parent])
                answer.childrenOf[parent].push_back(getRow(id));
        }
        ++questions_;
        rows_ += question.rows.size();
        ahead_.add(question, std::move(answer));
    }

    std::map<PathId, Row> paths_;
    std::map<PathId, std::vector<PathId>> children_;
    ReadAhead ahead_;
};

TEST_F(ReadAheadTest, AWalkThroughMoreThanIsKeptTakesFewQuestions) {
    std::deque<PathId> queue{rootId};
    std::size_t visited = 0;
    while (!queue.empty()) {
        const PathId path = queue.front();
        queue.pop_front();
        const Row* const row = read(path);
        ASSERT_TRUE(row && row->id == path);
        ++visited;
        for (const PathId& child : readChildren(path))
            queue.push_back(child);
    }
    EXPECT_EQ(visited, 1 + folders + files_.size());
    EXPECT_GT(rows_, files_.size() / 2);  // they were forgotten, and asked for again
    EXPECT_LT(questions_, files_.size() / 40);
}

TEST_F(ReadAheadTest, WhoAsksHereAndThereGetsNoMoreThanThat) {
    for (const PathId& folder : readChildren(rootId))
        readChildren(folder);
    std::shuffle(files_.begin(), files_.end(), std::mt19937(1));  // NOLINT: the same order in each run
    questions_ = 0;
    for (const PathId& path : files_)
        ASSERT_EQ(read(path)->id, path);
    EXPECT_GT(questions_, files_.size() / 3);
    EXPECT_LT(rows_, questions_ + questions_ / 100);
    EXPECT_EQ(read(getChildId(rootId, {u"no", u"such"})), nullptr);
}

TEST_F(ReadAheadTest, WhatComesAgainStaysWhenItsFirstTimeIsForgotten) {
    const auto parents = readChildren(rootId);
    std::mt19937 random(1);  // NOLINT: the same choices in each run
    std::size_t children = 0;
    for (int i = 0; i < 1000; ++i) {
        const PathId& file = files_[random() % files_.size()];
        ASSERT_EQ(read(file)->id, file);
        children += readChildren(parents[random() % parents.size()]).size();
    }
    EXPECT_EQ(children, std::size_t{1000} * files);
}

}  // namespace
