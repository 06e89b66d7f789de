/// @file
/// The exported interface of libkrlport_r_6.so, family by family.
#ifndef KRLPORT_KRLPORT_H_
#define KRLPORT_KRLPORT_H_

#include "krlport/version.h"

#include "krlport/frame/corba.h"
#include "krlport/frame/dictionary.h"
#include "krlport/frame/library_version.h"
#include "krlport/frame/port_lib_manager.h"
#include "krlport/frame/resource.h"
#include "krlport/frame/rw_dictionary.h"
#include "krlport/frame/string_var.h"
#include "krlport/frame/string_wrapper.h"
#include "krlport/frame/wstring_var.h"

#include "krlport/exceptions/environment.h"
#include "krlport/exceptions/exception.h"
#include "krlport/exceptions/system_exception.h"
#include "krlport/exceptions/user_exception.h"

#include "krlport/threads/condition.h"
#include "krlport/threads/mutex.h"
#include "krlport/threads/rw_lock.h"
#include "krlport/threads/spin_mutex.h"
#include "krlport/threads/thread.h"
#include "krlport/threads/thread_id.h"
#include "krlport/threads/thread_local.h"
#include "krlport/threads/unique_id.h"

#include "krlport/portable/base_util.h"
#include "krlport/portable/host_records.h"
#include "krlport/portable/pipe.h"
#include "krlport/portable/portable.h"

#include "krlport/streams/istream.h"
#include "krlport/streams/offset_table.h"
#include "krlport/streams/ostream.h"
#include "krlport/streams/string_stream_ops.h"

#include "krlport/services/arg_list.h"
#include "krlport/services/debug_log.h"
#include "krlport/services/getopt.h"
#include "krlport/services/load_library.h"
#include "krlport/services/logger.h"

#endif  // KRLPORT_KRLPORT_H_
