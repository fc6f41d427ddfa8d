// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

class LogCapture;

/**
 * Faults of the system below a program, and what they may leave behind. The functions that change
 * how the kernel or the allocator answers need a program that links fault_injection.
 */
namespace fault {

/** What a process holds: "9 descriptors, 2 threads". */
std::string holdings();
/** Waits, ten seconds at most, until this process holds that again. */
bool returnsTo(const std::string& before);
/**
 * Takes the log; its warnings and errors, and what else is told to have failed, one a line and
 * without what differs from run to run.
 */
std::string takeComplaints(LogCapture* log);

/** While on, this process can open no descriptor. */
void setFullDescriptorTable(bool on);

/** While on, no thread can be started in this process. */
void setNoThreads(bool on);

/**
 * While on, every other one of the calls that move the binder's bytes, and of those that wait for
 * them, is interrupted by a signal.
 */
void setInterrupting(bool on);

/** While set, read() fails with this error. */
void setReadError(int error);

/** While on, the allocations of this thread that may answer null do so. */
void setNoMemory(bool on);

}  // namespace fault
