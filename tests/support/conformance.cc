#include "tests/support/conformance.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>

#include "tests/support/targets.h"

namespace vorlith::check {

namespace {

int64_t Env(const char* name, int64_t fallback) {
  const char* v = std::getenv(name);
  return v && *v ? std::strtoll(v, nullptr, 0) : fallback;
}

std::string Describe(const Row& row, const Params& p) {
  std::string s = row.name;
  for (size_t i = 0; i < p.size(); ++i) {
    s += std::string(i ? " " : " [") + (i < row.params.size() ? row.params[i] : "?") + "=" +
         std::to_string(p[i]);
  }
  return p.empty() ? s : s + "]";
}

// A kernel that touches a guard page dies of SIGSEGV before any report:
// say which case it was, then let the previous handler (or the default) act.
std::string g_running;
struct sigaction g_previous;

void OnFault(int) {
  const std::string text = "\nfault in " + g_running + "\n";
  if (write(2, text.data(), text.size()) < 0) {}
  sigaction(SIGSEGV, &g_previous, nullptr);
}

std::string Rerun(uint32_t base, size_t index, const Row& row) {
  return "rerun: VORLITH_SEED=" + std::to_string(base) + " VORLITH_CASE=" +
         std::to_string(index) + " " + program_invocation_name + " --gtest_filter='*Conformance.Row/" +
         row.name + "'";
}

}  // namespace

std::vector<Params> Combos(std::vector<std::vector<int>> values, std::vector<int> cycle,
                           std::vector<Params> first) {
  std::vector<Params> cases = {{}};
  for (const std::vector<int>& v : values) {
    std::vector<Params> longer;
    for (const Params& p : cases) {
      for (int x : v) {
        longer.push_back(p);
        longer.back().push_back(x);
      }
    }
    cases = std::move(longer);
  }
  for (size_t i = 0; i < cases.size(); ++i) {
    for (size_t k = 0, at = i; k < cycle.size(); at /= cycle[k++]) cases[i].push_back(int(at % cycle[k]));
  }
  first.insert(first.end(), cases.begin(), cases.end());
  return first;
}

std::vector<int> Span(int lo, int hi) {
  std::vector<int> v;
  for (int i = lo; i <= hi; ++i) v.push_back(i);
  return v;
}

_StLanczos1p5x* Case::Context() {
  if (!ctx_) ctx_ = std::make_shared<test::Context>();
  return ctx_->get();
}

void RunRow(const Row& row) {
  const uint32_t base = static_cast<uint32_t>(Env("VORLITH_SEED", 20240611));
  const int64_t only = Env("VORLITH_CASE", -1);
  std::vector<Params> cases = row.sizes;
  std::mt19937 draws(base);
  for (int64_t i = row.draw ? Env("VORLITH_DRAWS", 16) : 0; i > 0; --i) {
    cases.push_back(row.draw(draws));
  }
  for (size_t index = 0; index < cases.size(); ++index) {
    if (only >= 0 && size_t(only) != index) continue;
    const uint32_t seed = base * 2654435761u + static_cast<uint32_t>(index);
    // Odd cases put inputs flush against the guard before them, even ones after.
    Case c(seed, index % 2 ? GuardedBytes::Flush::kStart : GuardedBytes::Flush::kEnd);
    row.make(cases[index], c);
    const size_t n = c.want.size();
    GuardedBytes out_end(n, GuardedBytes::Flush::kEnd), out_start(n, GuardedBytes::Flush::kStart);
    bool failed = false;
    auto check = [&](int64_t target) {
      for (GuardedBytes* out : {&out_end, &out_start}) {
        std::memset(out->data(), kSentinel, n);
        g_running = Describe(row, cases[index]) + ", target " +
                    (target ? vorlith::test::TargetName(target) : "any") + "\n  " +
                    Rerun(base, index, row);
        struct sigaction sa {};
        sa.sa_handler = OnFault;
        sigaction(SIGSEGV, &sa, &g_previous);
        c.run(out->data());
        sigaction(SIGSEGV, &g_previous, nullptr);
        size_t first = n, differ = 0;
        for (size_t i = 0; i < n; i += c.elem_) {
          if (std::memcmp(out->data() + i, &c.want[i], c.elem_) != 0 && differ++ == 0) first = i;
        }
        if (differ == 0) continue;
        const size_t e = first / c.elem_;
        ADD_FAILURE() << Describe(row, cases[index]) << "\n  target "
                      << (target ? vorlith::test::TargetName(target) : "any") << ", seed " << seed << ", output "
                      << (out == &out_end ? "before" : "after") << " a guard page: " << differ
                      << " elements differ, first " << e << " (row " << e / c.row_ << ", col "
                      << e % c.row_ << "): got " << c.show_(out->data() + first) << ", want "
                      << c.show_(&c.want[first]) << "\n  " << Rerun(base, index, row);
        failed = true;
        return;
      }
    };
    if (row.dispatched) {
      vorlith::test::ForEachTarget([&](int64_t target) {
        if (!failed) check(target);
      });
    } else {
      check(0);
    }
    if (failed) return;  // one report a row
  }
}

}  // namespace vorlith::check
