// Run loops, sources and dispatch queues: where blocks run, in which order.
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <numeric>
#include <stdexcept>
#include <thread>
#include <vector>

#include "NymbrelCore/NYBDispatchQueue.h"
#include "NymbrelCore/NYBRunLoop.h"

namespace nyb {
namespace {

using namespace std::chrono_literals;

// Another thread posts numbered blocks: they must all run, in order, where they should.
template <typename Post, typename Drain>
void expectSerialOrder(Post post, Drain drain, std::function<bool()> onRightThread) {
  std::vector<int> order, expected(100);
  std::iota(expected.begin(), expected.end(), 0);
  std::atomic<bool> right{true};
  std::thread([&] {
    for (int i : expected) {
      post([&, i] {
        right = right && onRightThread();
        order.push_back(i);
      });
    }
  }).join();
  drain([&] { return order.size() == expected.size(); });
  EXPECT_EQ(order, expected);
  EXPECT_TRUE(right);
}

TEST(RunLoop, TheMainLoopRunsBlocksInOrderOnTheThreadThatDrivesIt) {
  NYBRunLoop& loop = NYBRunLoop::main();
  const auto driver = std::this_thread::get_id();
  expectSerialOrder(
      [&](auto block) { loop.perform(block); }, [&](auto done) { loop.runUntil(done, 10s); },
      [&] { return std::this_thread::get_id() == driver && NYBRunLoop::isMainThread(); });
  EXPECT_EQ(NYBRunLoop::current().get(), &loop);

  std::thread([&] {
    const auto own = NYBRunLoop::current();  // another thread's loop is its own
    EXPECT_NE(own.get(), &loop);
    EXPECT_EQ(own, NYBRunLoop::current());
    EXPECT_FALSE(NYBRunLoop::isMainThread());
  }).join();

  // The main queue runs on this loop; sync from another thread waits for it,
  // sync from the main thread itself runs at once.
  std::atomic<bool> done{false};
  NYBDispatchQueue background("com.nymbrel.test.background");
  background.async(
      [&] { NYBDispatchQueue::main().sync([&] { done = NYBRunLoop::isMainThread(); }); });
  EXPECT_TRUE(loop.runUntil([&] { return done.load(); }, 10s));
  bool inlineRan = false;
  NYBDispatchQueue::main().sync([&] { inlineRan = NYBDispatchQueue::main().isCurrent(); });
  EXPECT_TRUE(inlineRan);
}

TEST(RunLoop, PassesStopsAndBoundedWaits) {
  NYBRunLoop loop;
  // A pass runs only what was queued when it began: a block that reposts
  // itself cannot keep one pass going.
  int generations = 0;
  std::function<void()> repost = [&] {
    ++generations;
    loop.perform(repost);
  };
  loop.perform(repost);
  EXPECT_EQ(loop.runOnce() + loop.runOnce(), 2u);
  EXPECT_EQ(generations, 2);

  // A block that throws leaves the rest queued.
  NYBRunLoop other;
  bool secondRan = false;
  other.perform([] { throw std::runtime_error("boom"); });
  other.perform([&] { secondRan = true; });
  EXPECT_THROW(other.runOnce(), std::runtime_error);
  EXPECT_EQ(other.runOnce(), 1u);
  EXPECT_TRUE(secondRan);

  // Waits with nothing to do end at their bound.
  EXPECT_FALSE(other.runUntil([] { return false; }, 30ms));
  other.runUntil(std::chrono::steady_clock::now() + 30ms);
  EXPECT_EQ(other.runOnce(20ms), 0u);

  // A stop ends run() after the blocks posted before it, not the ones after.
  int ran = 0;
  other.perform([&] { ++ran; });
  other.stop();
  other.perform([&] { ran += 10; });
  other.run();
  EXPECT_EQ(ran, 1);
  other.runOnce();
  EXPECT_EQ(ran, 11);

  // A host loop is told of new work once per idle period.
  std::atomic<int> wakeUps{0};
  other.setWakeUpHandler([&] { ++wakeUps; });
  for (int i = 0; i < 3; ++i) other.perform([] {});
  EXPECT_EQ(wakeUps, 1);
  EXPECT_EQ(other.runOnce(), 3u);
  other.perform([] {});
  EXPECT_EQ(wakeUps, 2);
  other.setWakeUpHandler(nullptr);
  other.perform([] {});
  EXPECT_EQ(wakeUps, 2);
}

TEST(RunLoopSource, SignalsFoldIntoOneCallAndInvalidationSilencesIt) {
  NYBRunLoop loop;
  int calls = 0;
  auto source = std::make_shared<NYBRunLoopSource>([&] { ++calls; });
  source->signal();  // before it is added: runs once it is
  loop.addSource(source);
  loop.runOnce();
  EXPECT_EQ(calls, 1);

  for (int i = 0; i < 3; ++i) source->signal();
  loop.runOnce();
  loop.runOnce();
  EXPECT_EQ(calls, 2);

  source->signal();
  source->invalidate();
  auto removed = std::make_shared<NYBRunLoopSource>([&] { ++calls; });
  loop.addSource(removed);
  loop.removeSource(removed);
  removed->signal();
  loop.runOnce();
  EXPECT_EQ(calls, 2);
}

TEST(DispatchQueue, SerialQueuesRunInOrderOnTheirOwnThread) {
  auto queue = std::make_shared<NYBDispatchQueue>("com.nymbrel.test.serial");
  std::thread::id queueThread;
  queue->sync([&] { queueThread = std::this_thread::get_id(); });
  EXPECT_NE(queueThread, std::this_thread::get_id());
  expectSerialOrder(
      [&](auto block) { queue->async(block); }, [&](auto) { queue->flush(); },
      [&] { return std::this_thread::get_id() == queueThread && queue->isCurrent(); });

  // sync from the queue itself runs at once; an exception reaches the caller.
  bool nested = false;
  queue->sync([&] { queue->sync([&] { nested = true; }); });
  EXPECT_TRUE(nested);
  EXPECT_THROW(queue->sync([] { throw std::runtime_error("inside"); }), std::runtime_error);

  // Destruction runs what is queued, also when the last owner is the queue's
  // own block: it ends without joining itself.
  std::atomic<int> ran{0};
  {
    NYBDispatchQueue doomed("com.nymbrel.test.doomed");
    std::promise<void> hold;
    doomed.async([held = hold.get_future().share()] { held.wait(); });
    for (int i = 0; i < 50; ++i) doomed.async([&] { ++ran; });
    hold.set_value();
  }
  EXPECT_EQ(ran, 50);
  std::promise<void> gate, released;
  queue->async([opened = gate.get_future().share()] { opened.wait(); });
  for (int i = 0; i < 50; ++i) queue->async([&] { ++ran; });
  queue->async([queue, &released]() mutable {
    queue.reset();
    released.set_value();
  });
  queue.reset();
  gate.set_value();
  EXPECT_EQ(released.get_future().wait_for(10s), std::future_status::ready);
  EXPECT_EQ(ran, 100);
}

}  // namespace
}  // namespace nyb
