// Test entry point.  One listener watches every test: a test that leaves live laws or
// live tracked allocations behind fails, naming the source tags that leaked.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/memory.hpp"
#include "lawutil/global_names.hpp"
#include "lawutil/lawutil.hpp"

namespace {

struct tag_count {
    std::string tag;
    long live;
};

std::vector<tag_count> live_by_tag() {
    std::vector<tag_count> r;
    for (int i = 1; i <= vorx_mem_tag_count(); ++i) {
        vorx_mem_tag_stats s = vorx_mem_tag(i);
        r.push_back({s.tag, s.live_count});
    }
    return r;
}

class leak_listener : public testing::EmptyTestEventListener {
    int laws_ = 0;
    long bytes_ = 0;
    long blocks_ = 0;
    std::vector<tag_count> tags_;

    void OnTestStart(const testing::TestInfo&) override {
        laws_ = law::how_many_laws;
        bytes_ = vorx_live_bytes();
        blocks_ = vorx_live_allocations();
        tags_ = live_by_tag();
    }

    void OnTestEnd(const testing::TestInfo&) override {
        int laws = law::how_many_laws;
        long bytes = vorx_live_bytes();
        long blocks = vorx_live_allocations();
        EXPECT_EQ(laws, laws_) << "the test leaves live laws behind";
        if (bytes != bytes_ || blocks != blocks_) {
            std::string where;
            std::vector<tag_count> now = live_by_tag();
            for (size_t i = 0; i < now.size(); ++i) {
                long before = i < tags_.size() ? tags_[i].live : 0;
                if (now[i].live != before)
                    where += " " + now[i].tag + "(" + std::to_string(now[i].live - before) + ")";
            }
            ADD_FAILURE() << "the test leaves " << (blocks - blocks_) << " tracked blocks ("
                          << (bytes - bytes_) << " bytes) behind:" << where;
        }
    }
};

// The library is started once for the whole run, as a host would.
class law_environment : public testing::Environment {
    void SetUp() override { initialize_law(); }
    void TearDown() override { terminate_law(); }
};

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    testing::AddGlobalTestEnvironment(new law_environment);
    testing::UnitTest::GetInstance()->listeners().Append(new leak_listener);
    return RUN_ALL_TESTS();
}
