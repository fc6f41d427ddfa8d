// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pthread.h>
#include <sys/types.h>

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

/** While it lives, this process can open no descriptor. */
class FullDescriptorTable {
public:
    FullDescriptorTable();
    FullDescriptorTable(const FullDescriptorTable&) = delete;
    FullDescriptorTable& operator=(const FullDescriptorTable&) = delete;
    ~FullDescriptorTable();

private:
    size_t mUsual;
};

/** While it lives, no thread can be started in this process. */
class NoThreads {
public:
    NoThreads();
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;
    ~NoThreads();

private:
    pthread_attr_t mUsual;
};

/**
 * While on, every other one of the calls that move the binder's bytes, and of those that wait for
 * them, is interrupted by a signal.
 */
void setInterrupting(bool on);

/** While set, read() fails with this error. */
void setReadError(int error);

/**
 * Fails an allocation of this thread: with 1 the next one that may answer null, with 2 the one
 * after that, and so on; 0 for none.
 */
void setFailingAllocation(int number);

}  // namespace fault
