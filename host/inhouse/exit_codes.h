// The exit status every tool answers with, so that scripts read them alike.
#pragma once

namespace ztexit {

inline constexpr int kOk = 0;
// The run went through and found fault with its input: zt2export's exporter
// cancelled the export for errors in the scene, zt2dump found the file
// invalid or different, a batch had files that failed.
inline constexpr int kProblems = 1;
// The run could not do its work: a wrong command line, a file that could not
// be read or written, a module that could not be loaded.
inline constexpr int kFailure = 2;
// A run stopped by a signal answers this plus the signal, as shells report
// a program the signal ended (Ctrl-C: 130).
inline constexpr int kSignalBase = 128;

}  // namespace ztexit
