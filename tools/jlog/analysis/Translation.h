#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "tools/jlog/analysis/Analysis.h"
#include "tools/jlog/analysis/Block.h"
#include "tools/jlog/analysis/Numbers.h"

namespace JCam::Tool {

/// The numbers of all parsers, as those of the series.
class Translation {
  public:
    /// Appends to the tables what blocks have and they have not.
    Translation(std::vector<Thread>& threads, std::vector<ScopeName>& names,
                std::vector<std::string>& tags)
            : mThreads(threads), mNames(names), mTags(tags) {
        for (const Thread& thread : threads) {
            mThreadNumbers.emplace(thread.tid, mThreadNumbers.size());
        }
        for (const ScopeName& name : names) {
            mNameNumbers.emplace(keyOf(name), mNameNumbers.size());
        }
        for (const std::string& tag : tags) {
            mTagNumbers.emplace(tag, mTagNumbers.size());
        }
    }

    struct Tables {
        std::vector<uint32_t> threads;
        std::vector<uint32_t> scopes;
        std::vector<uint32_t> tags;
    };

    /// Those of the parser of the block, with what is new in it.
    const Tables& of(const Block& block) {
        if (block.parser >= mTables.size()) {
            mTables.resize(block.parser + 1);
        }
        Tables& tables = mTables[block.parser];
        for (const int tid : block.discovered.tids) {
            tables.threads.push_back(
                    numberOf(mThreadNumbers, tid, [&] { mThreads.emplace_back().tid = tid; }));
        }
        for (const std::string& scope : block.discovered.scopes) {
            ScopeName name = parse(scope);
            std::string key = keyOf(name);
            tables.scopes.push_back(numberOf(mNameNumbers, std::move(key),
                                             [&] { mNames.push_back(std::move(name)); }));
        }
        for (const std::string& tag : block.discovered.tags) {
            tables.tags.push_back(numberOf(mTagNumbers, tag, [&] { mTags.push_back(tag); }));
        }
        return tables;
    }

  private:
    /// "Preview:4] +  :IspNode", which a parser has seen to be of that form.
    static ScopeName parse(std::string_view scope) {
        constexpr size_t kBehindId = sizeof("] +  :") - 1;
        ScopeName name;
        const size_t colon = scope.find(':');
        const size_t bracket = scope.find(']', colon);
        name.module = scope.substr(0, colon);
        name.moduleId = static_cast<uint32_t>(
                std::stoul(std::string(scope.substr(colon + 1, bracket - colon - 1)), nullptr, 16));
        name.name = scope.substr(bracket + kBehindId);
        return name;
    }

    static std::string keyOf(const ScopeName& name) {
        return name.module + ':' + std::to_string(name.moduleId) + ':' + name.name;
    }

    std::vector<Thread>& mThreads;
    std::vector<ScopeName>& mNames;
    std::vector<std::string>& mTags;
    std::unordered_map<int, uint32_t> mThreadNumbers;
    std::unordered_map<std::string, uint32_t> mNameNumbers;
    std::unordered_map<std::string, uint32_t> mTagNumbers;
    std::vector<Tables> mTables;  // of each parser
};

}  // namespace JCam::Tool
