// SPDX-License-Identifier: Apache-2.0
//
// A process that forks while the library is at work. The child has a copy of all variables and none of the threads: no
// worker, nobody who would ever open a lock that was held. It gets a library without workers: frames are answered
// code_pipeline_failed, no sweep can be begun, what can be looked at is what there was, and the parent's files are none
// of its business. Nothing there waits for anybody, the end of the process included.
//
// Whoever keeps account of threads sees to its own part (worker_pool.cpp, session_gate.cpp, c_boundary.cpp); here are
// the locks and the task.
#pragma once

namespace tarn {

/// Arranges for forks of the calling process. To be called before there are workers, any number of times. Any thread.
void be_ready_for_forks();

/// Whether the process was forked off after that.
bool is_forked_process();

/// For the end of such a process, when it comes to the exit handlers of OpenCV's that were registered by the library's
/// first call: these, and destructors of OpenCV's, take locks that a thread of the parent's may have had when it was
/// copied. It happens to one child in thousands; after two seconds that one ends without them, with the exit status
/// that it was given. Takes SIGALRM until the_library_has_ended.
void bound_the_end_of_a_forked_process();

/// When those are done: what comes then is the host's, and takes its time. Gives SIGALRM back.
void the_library_has_ended();

}  // namespace tarn
