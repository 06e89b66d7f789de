// Test-only access to the fields of CORBA_Exception::Description that have no
// accessor. Included by tests alone.
#ifndef KRLPORT_EXCEPTIONS_DESCRIPTION_TEST_PEER_H_
#define KRLPORT_EXCEPTIONS_DESCRIPTION_TEST_PEER_H_

#include "krlport/exceptions/exception.h"

namespace krl_internal {

struct DescriptionTestPeer {
  static const CORBA_Exception::Description* base(const CORBA_Exception::Description& d) {
    return d._base;
  }
};

}  // namespace krl_internal

#endif  // KRLPORT_EXCEPTIONS_DESCRIPTION_TEST_PEER_H_
