#include "krlport/exceptions/environment.h"

#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <vector>

#include "krlport/exceptions/system_exception.h"

namespace {

TEST(EnvironmentTest, HoldsAndCopiesItsException) {
  CORBA_Environment env;
  env.clear();  // empty: nothing to do
  EXPECT_EQ(env.exception(), nullptr);
  CORBA_BAD_PARAM* e = new CORBA_BAD_PARAM(5, CORBA::COMPLETED_MAYBE, "why");
  env.exception(e);
  env.exception(e);  // the same pointer again keeps it
  env = env;
  ASSERT_EQ(env.exception(), e);

  CORBA_Environment_var copy(CORBA_Environment::_duplicate(&env));
  const CORBA_BAD_PARAM* c = CORBA_BAD_PARAM::_downcast(copy->exception());
  ASSERT_NE(c, nullptr);
  EXPECT_NE(c, e);
  EXPECT_EQ(c->minor(), e->minor());
  EXPECT_EQ(c->completed(), CORBA::COMPLETED_MAYBE);
  EXPECT_TRUE(c->explanation() == nullptr || std::strcmp(c->explanation(), "why") != 0);
  env.exception(nullptr);
  EXPECT_NE(copy->exception(), nullptr);

  CORBA_Environment assigned;
  assigned = *copy;
  EXPECT_NE(assigned.exception(), copy->exception());
  EXPECT_NE(CORBA_BAD_PARAM::_downcast(assigned.exception()), nullptr);
}

TEST(EnvironmentTest, HoldersOwnAndReleaseAsStated) {
  CORBA::release(static_cast<CORBA_Environment*>(nullptr));
  EXPECT_EQ(CORBA::is_nil(CORBA_Environment::_nil()), 1);
  CORBA_Environment_var empty;
  EXPECT_EQ(CORBA_Environment_var(empty).in(), nullptr);  // copying nil gives nil

  CORBA_Environment_var v(new CORBA_Environment);
  v = v.in();                    // adopting what it holds keeps it
  CORBA_Environment_out out(v);  // empties the holder at once
  EXPECT_EQ(v.in(), nullptr);
  CORBA_Environment* filled = new CORBA_Environment;
  out = filled;
  CORBA_Environment* raw = filled;
  CORBA_Environment_out raw_out(raw);  // nulls without releasing: v still owns it
  EXPECT_EQ(raw, nullptr);
  CORBA::release(v._retn());
  EXPECT_EQ(v.in(), nullptr);
}

// Each thread has its own. A repeated call is answered from a per-thread
// cache; the answer must end with the thread's finalisation, also while other
// threads finalise theirs. A stale answer is freed memory, which the sanitizer
// builds see; an exception left in a finalised one would leak.
TEST(EnvironmentTest, PerThreadAndNeverGivenAgainOnceFinalised) {
  CORBA_Environment& mine = CORBA::current_environment();
  mine.exception(new CORBA_NO_RESOURCES);
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 100; ++i) {
        CORBA_Environment& env = CORBA::current_environment();
        EXPECT_EQ(env.exception(), nullptr);
        env.exception(new CORBA_TIMEOUT);
        EXPECT_EQ(&CORBA::current_environment(), &env);
        EXPECT_EQ(&CORBA_Environment::current_environment(), &env);
        KRLThreadLocal::_exit_thread(nullptr);
      }
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_NE(CORBA_NO_RESOURCES::_downcast(mine.exception()), nullptr);
  KRLThreadLocal::_exit_thread(nullptr);
}

}  // namespace
