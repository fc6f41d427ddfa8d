// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

class LogCapture;

/** Faults of the system below a program, and what they may leave behind. */
namespace fault {

/** What a process holds: "9 descriptors, 2 threads". */
std::string holdings();
/** Waits until this process holds that again; fails the test when it does not come to that. */
void expectReturnTo(const std::string& before);
/**
 * Takes the log; its warnings and errors, and what else is told to have failed, one a line and
 * without what differs from run to run.
 */
std::string takeComplaints(LogCapture* log);

/** While on, this process can open no descriptor. */
void setFullDescriptorTable(bool on);

/** While on, no thread can be started in this process. */
void setNoThreads(bool on);

}  // namespace fault
