#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <thread>

#include "support/all_entries.h"
#include "support/child.h"
#include "vemkn_errors.h"

// A thread that is cancelled while it waits for calls with another number of tangents.

namespace {

using namespace std::chrono_literals;

std::atomic<bool> inside{false}, go_on{false};

// Keeps a call from going on for as long as the test likes.
struct Holder : yafad::ErrorHandler {
    void report(yafad::Error&) override
    {
        inside = true;
        while (!go_on) std::this_thread::sleep_for(1ms);
    }
};

void* waits_at_the_gate(void* net)
{
    auto* const handle = static_cast<VEMKNInfo*>(net);
    const Request q = random_request(usual_network(), 4, 5, 2, 1);
    any_entry_named("vemk_Hv").run(handle, q);
    return nullptr;
}

}  // namespace

SCENE(cancels_a_thread_that_waits)
{
    alarm(20);
    static Holder holder;
    yafad::ErrorHandler::getHandler() = &holder;
    const plain::Network network = usual_network();
    const Network net(network.text());
    vemk_quiet(net, 1);
    std::thread first([&] {
        Request empty = random_request(network, 0, 5, 1, 1);
        any_entry_named("vemk_Hv").run(net, empty);
    });
    while (!inside) std::this_thread::sleep_for(1ms);
    pthread_t second;
    pthread_create(&second, nullptr, waits_at_the_gate, static_cast<VEMKNInfo*>(net));
    std::this_thread::sleep_for(50ms);
    pthread_cancel(second);
    std::this_thread::sleep_for(10ms);
    go_on = true;
    first.join();
    pthread_join(second, nullptr);
    const Network another(network.text());
    const Request q = random_request(network, 4, 5, 3, 1);
    std::_Exit(any_entry_named("vemk_Jv").run(net, q).status);
}

TEST(CancelFault, CancelledWhileItWaitsForItsTurn_OthersGoOn)
{
    const child::Outcome outcome = child::play("cancels_a_thread_that_waits");
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
}

void* calls_with_a_team(void* net)
{
    const Request q = random_request(usual_network(), 40, 5, 2, 1);
    any_entry_named("vemk_g").run(static_cast<VEMKNInfo*>(net), q);
    return net;
}

// No call is torn down by what it does to get a team.
SCENE(cancels_threads_that_call)
{
    alarm(60);
    const Network net(usual_network().text());
    vemk_setpar(net, 2, 4);
    int returned = 0;
    for (int i = 0; i < 50; ++i) {
        pthread_t thread;
        pthread_create(
            &thread,
            nullptr,
            [](void* handle) -> void* {
                pthread_cancel(pthread_self());  // takes effect at the first point that allows it
                return calls_with_a_team(handle);
            },
            static_cast<VEMKNInfo*>(net));
        void* result = nullptr;
        pthread_join(thread, &result);
        returned += result == static_cast<VEMKNInfo*>(net) ? 1 : 0;
    }
    std::_Exit(returned == 50 ? 0 : 1);
}

TEST(CancelFault, CancelledWhileItCalls_TheCallComesToItsEnd)
{
    const child::Outcome outcome = child::play("cancels_threads_that_call");
    EXPECT_TRUE(outcome.exited_with(0)) << outcome.description();
}
