#include <gtest/gtest.h>
#include <omp.h>

#include <stdexcept>

#include "api/handle.h"
#include "support/network.h"

namespace {

constexpr const char* TEXT = "2 1 2 1 8 2 3 softplus sum";

void expect_setting(const Network& net, unsigned threads, int batch)
{
    const VEMKN::VEMKNInfo* const info = net;
    EXPECT_EQ(threads, info->model.threads);
    EXPECT_EQ(threads, info->derivative_model.threads);
    EXPECT_EQ(batch, info->model.batch);
    EXPECT_EQ(batch, info->derivative_model.batch);
}

}  // namespace

TEST(InitVEMKNet, GivesBatch32AndOneThreadWhateverTheTextSays)
{
    expect_setting(Network(TEXT), 1, 32);
    expect_setting(Network("2 1 2 1 4000000000 2 3 softplus sum"), 1, 32);
    expect_setting(Network("no network"), 1, 32);
}

TEST(InitVEMKNet, TakesTheTeamSizeInsideAParallelRegion)
{
    // OpenMP promises a team of two only where it may have as many threads.
    omp_set_dynamic(0);
    int team = 0;
    VEMKNInfo* created = nullptr;
#pragma omp parallel num_threads(2)
    {
#pragma omp single
        {
            team = omp_get_num_threads();
            created = initVEMKNet(TEXT, 26);
        }
    }
    EXPECT_EQ(static_cast<unsigned>(team), created->model.threads);
    EXPECT_EQ(static_cast<unsigned>(team), created->derivative_model.threads);
    EXPECT_EQ(32, created->model.batch);
    releaseVEMKNet(created);
}

TEST(InitVEMKNet, SetsTheHeaderWord)
{
    const Network net(TEXT);
    EXPECT_EQ(440u, static_cast<VEMKNInfo*>(net)->header);
}

TEST(InitVEMKNet, BuildsTwoModelsOfTheSameShapes)
{
    const Network net("3 2 3 2 8 5 4 5 atan sum_log_dnorm_fat");
    const VEMKN::VEMKNInfo* const info = net;
    ASSERT_EQ(3u, info->model.weights.size());
    ASSERT_EQ(3u, info->derivative_model.weights.size());
    EXPECT_EQ(info->model.numin, info->derivative_model.numin);
    EXPECT_EQ(info->model.numout, info->derivative_model.numout);
    EXPECT_EQ(info->model.nmult, info->derivative_model.nmult);
    EXPECT_EQ(info->model.activation_name, info->derivative_model.activation_name);
    EXPECT_EQ(info->model.norm_name, info->derivative_model.norm_name);
}

TEST(InitVEMKNet, ReadsExactlyTheGivenNumberOfBytes)
{
    // "2 1 1 1 8 2 relu sum", cut before, in and behind its last word.
    const char text[] = "2 1 1 1 8 2 relu summit";
    VEMKNInfo* const net = initVEMKNet(text, 20);
    EXPECT_EQ("sum", net->model.norm_name);
    EXPECT_TRUE(net->model.summing_norm.is_set());
    releaseVEMKNet(net);
    VEMKNInfo* const cut = initVEMKNet(text, 19);
    EXPECT_EQ("su", cut->model.norm_name);
    releaseVEMKNet(cut);
}

TEST(InitVEMKNet, KeepsEmbeddedNulBytes)
{
    // A NUL is no white space: it belongs to the word.
    const char text[] = "2 1 1 1 8 2 relu sum\0x";
    VEMKNInfo* const net = initVEMKNet(text, sizeof text - 1);
    EXPECT_EQ(std::string("sum\0x", 5), net->model.norm_name);
    EXPECT_FALSE(net->model.summing_norm.is_set());
    releaseVEMKNet(net);
}

TEST(InitVEMKNet, ThrowsForANullTextWithALength)
{
    try {
        initVEMKNet(nullptr, 5);
        FAIL() << "no exception";
    } catch (const std::length_error&) {
        FAIL() << "the wrong exception";
    } catch (const std::logic_error& error) {
        EXPECT_STREQ("basic_string: construction from null is not valid", error.what());
    }
}

TEST(InitVEMKNet, ThrowsForANegativeLength)
{
    for (const int length : {-1, -2147483647 - 1}) {
        try {
            initVEMKNet(TEXT, length);
            FAIL() << "no exception";
        } catch (const std::length_error& error) {
            EXPECT_STREQ("basic_string::_M_create", error.what());
        }
    }
}

TEST(InitVEMKNet, TakesANullTextOfNoLength)
{
    VEMKNInfo* const net = initVEMKNet(nullptr, 0);
    ASSERT_NE(nullptr, net);
    EXPECT_EQ(0u, vemk_numel(net));
    releaseVEMKNet(net);
}

TEST(InitVEMKNet, NeverReturnsNull)
{
    for (const char* text : {"", " ", "0", "none", "1 1 1 1"}) {
        const Network net(text);
        EXPECT_NE(nullptr, static_cast<VEMKNInfo*>(net)) << text;
    }
}

TEST(ReleaseVEMKNet, IgnoresNull)
{
    releaseVEMKNet(nullptr);
}

TEST(SetPar, SetsThreadsAndBatchInBothModels)
{
    const Network net(TEXT);
    EXPECT_EQ(0, vemk_setpar(net, 4, 8));
    expect_setting(net, 4, 8);
    EXPECT_EQ(0, vemk_setpar(net, 1, 2147483647));
    expect_setting(net, 1, 2147483647);
    EXPECT_EQ(0, vemk_setpar(net, 99999, 1));
    expect_setting(net, 99999, 1);
}

TEST(SetPar, RejectsThreadsOutOfRangeAndChangesNothing)
{
    const Network net(TEXT);
    ASSERT_EQ(0, vemk_setpar(net, 4, 8));
    for (const unsigned threads : {0u, 100000u, 2147483648u, 4294967295u}) {
        EXPECT_EQ(-1, vemk_setpar(net, threads, 16)) << threads;
        expect_setting(net, 4, 8);
    }
}

TEST(SetPar, IgnoresABadBatchButSetsTheThreads)
{
    const Network net(TEXT);
    ASSERT_EQ(0, vemk_setpar(net, 4, 8));
    unsigned threads = 5;
    for (const int batch : {0, -1, -2147483647 - 1}) {
        EXPECT_EQ(0, vemk_setpar(net, threads, batch)) << batch;
        expect_setting(net, threads, 8);
        ++threads;
    }
    EXPECT_EQ(0, vemk_setpar(net, 99999, 0));
    expect_setting(net, 99999, 8);
}

TEST(SetBatch, SetsTheBatchOfBothModelsOnly)
{
    const Network net(TEXT);
    ASSERT_EQ(0, vemk_setpar(net, 4, 8));
    EXPECT_EQ(0, vemk_setbatch(net, 1));
    expect_setting(net, 4, 1);
    EXPECT_EQ(0, vemk_setbatch(net, 2147483647));
    expect_setting(net, 4, 2147483647);
}

TEST(SetBatch, RejectsLessThanOneAndChangesNothing)
{
    const Network net(TEXT);
    ASSERT_EQ(0, vemk_setpar(net, 4, 8));
    for (const int batch : {0, -1, -2147483647 - 1}) {
        EXPECT_EQ(-1, vemk_setbatch(net, batch)) << batch;
        expect_setting(net, 4, 8);
    }
}

TEST(Setters, RejectANullHandle)
{
    EXPECT_EQ(-1, vemk_setpar(nullptr, 4, 8));
    EXPECT_EQ(-1, vemk_setbatch(nullptr, 8));
}

TEST(Major, StoresItsArgumentForAllHandles)
{
    ASSERT_EQ(0, vemkn_rowmajor);
    const Network net(TEXT);
    for (const int value : {1, -7, 2147483647, 0}) {
        EXPECT_EQ(0, vemk_major(net, value));
        EXPECT_EQ(value, vemkn_rowmajor);
    }
}

TEST(Major, DoesNotLookAtTheHandle)
{
    EXPECT_EQ(0, vemk_major(nullptr, 5));
    EXPECT_EQ(5, vemkn_rowmajor);
    EXPECT_EQ(0, vemk_major(nullptr, 0));
    EXPECT_EQ(0, vemkn_rowmajor);
}
