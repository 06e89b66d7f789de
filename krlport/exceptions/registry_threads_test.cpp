// Exceptions read from typed streams on several threads at once: each lookup
// of a repository id stores the registry's hint, which ThreadSanitizer must
// find race-free.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "krlport/exceptions/system_exception.h"
#include "krlport/streams/istream.h"
#include "krlport/streams/ostream.h"

namespace {

TEST(RegistryThreadsTest, ExceptionsAreReadOnSeveralThreadsAtOnce) {
  std::ostringstream text;
  {
    KRLostream out(text);
    out << CORBA_BAD_PARAM(8, CORBA::COMPLETED_NO) << CORBA_COMM_FAILURE(10061, CORBA::COMPLETED_NO)
        << CORBA_NO_RESOURCES(3, CORBA::COMPLETED_MAYBE) << CORBA_TIMEOUT();
  }
  const std::string written = text.str();
  const char* const ids[] = {CORBA_BAD_PARAM::_description.repository_id(),
                             CORBA_COMM_FAILURE::_description.repository_id(),
                             CORBA_NO_RESOURCES::_description.repository_id(),
                             CORBA_TIMEOUT::_description.repository_id()};
  std::vector<int> wrong(4, 0);
  std::vector<std::thread> readers;
  for (int t = 0; t < 4; ++t) {
    readers.emplace_back([&written, &ids, &wrong, t] {
      for (int round = 0; round < 500; ++round) {
        std::istringstream source(written);
        KRListream in(source);
        for (const char* id : ids) {
          CORBA_Exception* e = nullptr;
          in >> e;
          if (e == nullptr || std::string(e->_repository_id()) != id) ++wrong[t];
          delete e;
        }
      }
    });
  }
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(wrong, std::vector<int>(4, 0));
}

}  // namespace
