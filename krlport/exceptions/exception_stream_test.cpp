#include <gtest/gtest.h>

#include <iostream>
#include <sstream>

#include "krlport/exceptions/system_exception.h"
#include "krlport/exceptions/user_exception.h"
#include "krlport/portable/test_support.h"
#include "krlport/services/logger.h"
#include "krlport/streams/string_stream_ops.h"

namespace {

// A client exception as generated code defines one, with a body of two fields.
class ClientError : public CORBA_UserException {
 public:
  ClientError(long c = 0, const char* w = "") : code(c), what(w) {}
  const Description& _desc() const override { return _description; }
  void _raise() const override { throw *this; }
  CORBA_Exception* _deep_copy() override { return new ClientError(*this); }
  void _write(KRLostream& s) const override { s << code << what.in(); }
  void _copy(KRListream& s) override { s >> code >> what; }
  static CORBA_Exception* _factory() { return new ClientError; }
  static const Description _description;
  long code;
  CORBA_String_var what;
};
const CORBA_Exception::Description ClientError::_description("ClientError",
                                                             "IDL:test/ClientError:1.0",
                                                             ClientError::_factory,
                                                             &CORBA_UserException::_description,
                                                             nullptr);

// Writes e and 42 behind it on a text stream.
std::string written(const CORBA_Exception& e) {
  std::ostringstream out;
  KRLostream s(out);
  s << e << 42ul;
  return out.str();
}

// Reads one exception from text, then the unsigned long behind it into next.
CORBA_Exception* read_back(const std::string& text, unsigned long& next) {
  std::istringstream in(text);
  KRListream s(in);
  CORBA_Exception* e = nullptr;
  s >> e >> next;
  return e;
}

std::string readable(const CORBA_Exception& e) {
  krl_test::Capture text;  // std::cout itself, its buffer swapped: strings come out plain
  KRLostream s(std::cout);
  e._pretty_print(s);
  return text.text();
}

TEST(ExceptionStream, RoundTripsKeepClassAndBodyAndReadNothingMore) {
  // The explanation stays home: the wire text is that of the bare exception.
  const std::string wire = written(CORBA_BAD_PARAM(4, CORBA::COMPLETED_NO, "stays home"));
  EXPECT_EQ(wire, "32\"IDL:omg.org/CORBA/BAD_PARAM:1.0\"\n1330446340 1 42 ");
  unsigned long next = 0;
  CORBA_Exception_var sys = read_back(wire, next);
  const CORBA_BAD_PARAM* bad_param = CORBA_BAD_PARAM::_downcast(sys);
  ASSERT_NE(bad_param, nullptr);
  EXPECT_EQ(written(*bad_param), wire);  // minor and completion came back
  EXPECT_STREQ(bad_param->explanation(), "");
  EXPECT_EQ(next, 42ul);

  CORBA_Exception_var remarshal = read_back(written(KRLRemarshal()), next = 0);
  EXPECT_NE(KRLRemarshal::_downcast(remarshal), nullptr);
  EXPECT_EQ(next, 42ul);  // no body behind the id

  CORBA_Exception_var client = read_back(written(ClientError(-5, "a \"b\" {c}")), next = 0);
  ASSERT_EQ(client->_desc().can_cast(ClientError::_description), 1);
  const ClientError* c = static_cast<const ClientError*>(static_cast<CORBA_Exception*>(client));
  EXPECT_EQ(c->code, -5);
  EXPECT_STREQ(c->what.in(), "a \"b\" {c}");
  EXPECT_EQ(next, 42ul);
}

TEST(ExceptionStream, UnknownOrAbstractIdGivesUnknownAndLeavesTheBody) {
  for (const char* id : {"IDL:nowhere/Gone:1.0", "IDL:omg.org/CORBA/SystemException:1.0"}) {
    std::ostringstream out;
    KRLostream(out) << id << 77ul;
    unsigned long next = 0;
    CORBA_Exception_var e = read_back(out.str(), next);
    const CORBA_UNKNOWN* unknown = CORBA_UNKNOWN::_downcast(e);
    ASSERT_NE(unknown, nullptr) << id;
    EXPECT_EQ(unknown->minor(), CORBA::OMGVMCID);
    EXPECT_EQ(next, 77ul) << id;
  }
}

TEST(ExceptionStream, ReadablePrintAndInvalidStatusThatTravelsBack) {
  EXPECT_EQ(readable(CORBA_BAD_PARAM(4, CORBA::COMPLETED_YES, "bad port")),
            "Exception: CORBA::BAD_PARAM\n\tExplanation: bad port\n\tMinor: 1330446340 \n"
            "\tCompletion Status: YES\n");
  EXPECT_EQ(readable(CORBA_TIMEOUT(5000, CORBA::COMPLETED_MAYBE, nullptr)),
            "Exception: CORBA::TIMEOUT\n\tMinor: 5000 \n\tCompletion Status: MAYBE\n");

  unsigned long next = 0;
  CORBA_Exception_var odd = read_back("32\"IDL:omg.org/CORBA/BAD_PARAM:1.0\"\n9 7 ", next);
  EXPECT_NE(readable(*odd).find("\tCompletion Status: Invalid status\n"), std::string::npos);
  std::ostringstream out;
  out << *odd;  // not a logger stream: the body alone
  EXPECT_EQ(out.str(), "9 7 ");
}

TEST(ExceptionStream, PlainStreamGetsReadableFormOnlyWhenItIsALoggerStream) {
  std::ostringstream logger_err, other;
  KRLLogger::replace_err(logger_err, 0);
  logger_err << CORBA_BAD_PARAM(4, CORBA::COMPLETED_NO);
  other << CORBA_BAD_PARAM(4, CORBA::COMPLETED_NO);
  KRLLogger::replace_err(std::cerr, 0);
  EXPECT_EQ(logger_err.str(),
            "12\"Exception: \"\n17\"CORBA::BAD_PARAM\"\n\n9\"\\tMinor: \"\n1330446340 \n"
            "21\"\\tCompletion Status: \"\n3\"NO\"\n\n");
  EXPECT_EQ(other.str(), "1330446340 1 ");
}

}  // namespace
