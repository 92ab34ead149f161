// zt2export --batch: the command line of a whole-tree run (batch/batch.h
// does the work).
#pragma once

namespace ztbatch {

// True when the command line asks for a batch run.
bool isBatchCommand(int argc, char** argv);
// Parses the batch's command line, runs it and returns the exit status:
// 0 all exported or up to date, 1 any cancelled or failed, 2 a usage error,
// 128 + the signal when interrupted.
int batchCommand(int argc, char** argv);

}  // namespace ztbatch
