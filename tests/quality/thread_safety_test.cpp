// One shader object shaded from several threads at once, each with states
// of its own: every output equals the single-threaded one, to the byte.
// Under the thread sanitizer the same test looks for data races.
#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "variations.h"

namespace {

constexpr int kThreads = 4;
constexpr int kStates = 64;

struct Job {
  const kvi::test::ShadingOperation* op;
  kvi::ShadingState input;
  kvi::ShadingState output;
};

TEST(ThreadSafety, ConcurrentShadingMatchesSingleThreaded) {
  const auto& module = kvi::test::testModule();
  for (const auto& name : module.shaderNames()) {
    const auto info = kvi::test::testShaderInfo(name);
    const auto ops = kvi::test::operationsOf(*info);
    for (auto& v : kvi::test::variationsOf(name, 3, 99)) {
      // The single-threaded answers for many states and every operation.
      std::mt19937 rng(7);
      std::vector<Job> jobs;
      for (int k = 0; k < kStates; ++k) {
        kvi::ShadingState input = k == 0 ? v->state : kvi::test::randomState(rng);
        for (const auto& op : ops) jobs.push_back(Job{&op, input, input});
      }
      for (auto& job : jobs) {
        kvi::host::BaseContext context = v->context;
        job.op->call(v->shader->object.get(), &context, &job.output);
      }
      // The same jobs from several threads at once, each in its own order.
      std::vector<std::vector<kvi::ShadingState>> results(kThreads, std::vector<kvi::ShadingState>(jobs.size()));
      std::vector<std::thread> threads;
      for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
          kvi::host::BaseContext context = v->context;
          for (size_t i = 0; i < jobs.size(); ++i) {
            const size_t j = (i * 7 + size_t(t) * 13) % jobs.size();
            results[t][j] = jobs[j].input;
            jobs[j].op->call(v->shader->object.get(), &context, &results[t][j]);
          }
        });
      for (auto& thread : threads) thread.join();
      for (int t = 0; t < kThreads; ++t)
        for (size_t j = 0; j < jobs.size(); ++j)
          ASSERT_EQ(std::memcmp(&results[t][j], &jobs[j].output, sizeof(kvi::ShadingState)), 0)
              << name << " " << jobs[j].op->name << " (" << v->label << "), thread " << t << ", job " << j;
    }
  }
}

}  // namespace
