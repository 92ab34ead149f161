// Every file the exporter, the tools, the batch and the Python package create,
// replace, copy or remove goes through this module, so that each rule below
// is kept in one place:
//
// - a file is replaced so that a failure at any point leaves either the old
//   file or the whole new one, never a mixture and never a stray temporary;
// - files of one run appear together or not at all (FileStaging);
// - no output is a file the run reads (RunInputs);
// - names beneath an output directory are resolved from its descriptor,
//   without following a link out of it (OutputDirectory);
// - only what this program made, and can prove it made, is ever removed.
//
// tools/check_file_writes.sh fails CI on a call that creates, replaces or
// removes a file anywhere else in the sources.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "host/inhouse/result.h"

// Every function here that can fail answers a Result: its error's message is
// the system's reason or this module's ("not a regular file"), for the caller
// to put after the file it names; nothing here prints.

struct ByteRange {
  const void* data;
  std::size_t size;
};

// Writes the ranges, in order, as the new contents of `target`: a FileStaging
// of this one file, committed at once.
//
// - The bytes go to a temporary of a unique name in the directory of the file
//   finally replaced, are flushed to the disk and then renamed over it, so two
//   writers of one file at once leave one of the two whole files.
// - A symbolic link is followed: the file it points to is replaced and the link stays.
// - An existing file keeps its permission bits and, where allowed, its group; a new
//   file gets the usual permissions under the process's umask.
// - A target that exists but is not a regular file (a directory, a device, a FIFO),
//   or a regular file with other hard links (which a rename would cut loose from
//   the new contents), is refused.
//
// Fails with the reason, such as "Permission denied" or "not a regular file".
Result<void> replaceFileContents(const std::string& target, std::initializer_list<ByteRange> ranges);

// The file that writing to `path` lands in: every symbolic link followed (a
// dangling one names the file it would create). `path` itself when a link
// cannot be read.
std::string resolvedTarget(const std::string& path);

// True when `a` and `b` name one file: the same device and inode when both
// exist (links followed), otherwise the same path once made absolute and
// normalised. A tool refuses an output that is one of its inputs with it.
bool sameFile(const std::string& a, const std::string& b);

// The first of `inputs` that writing `output` would overwrite (sameFile);
// empty when there is none.
std::string overwrittenInput(const std::string& output, std::initializer_list<std::string> inputs);

// Removes what runs killed while saving left in `directory`: the temporaries
// FileStaging makes for the files `names` and for every file the directory
// holds, and its staging directories, when they are this user's and no live
// run holds their lock. For a program that kills an export it started.
void removeAbandonedTemporaries(const std::string& directory, const std::vector<std::string>& names);

class OutputDirectory;

// Files of one run that must appear together or not at all. Each is first
// written to a temporary beside its target ("stage"); commit() then puts them
// all in place, and discard() (or the destructor) removes what was not.
//
// - A temporary is named ".NAME.<twelve random characters>.ztmp" beside the
//   file NAME it will replace. While it exists its writer holds an exclusive
//   advisory lock (flock) on it. Staging for NAME first removes such
//   temporaries of a writer that died (a killed run): files of our user whose
//   lock is free. Nothing else is ever taken for one of ours.
// - New files (copies that must never overwrite anything) are staged in a
//   folder ".ztexport-<twelve random characters>" of the run inside the
//   directory they go to, with a marker file inside that proves it ours and
//   that its run keeps locked; such folders of dead runs are removed as well,
//   their regular files only.
// - Staging, clean-up and commit each hold an exclusive flock on the directory
//   they work in for their few system calls, so a run never removes a
//   temporary that another run has just made and not yet locked, and two
//   commits into one directory never interleave.
// - Every file is created, renamed and linked relative to its directory's
//   descriptor, so a link swapped in for a folder meanwhile cannot redirect it.
// - A file that cannot be staged makes the whole commit fail: the run's files
//   appear together or not at all.
class FileStaging {
 public:
  FileStaging() = default;
  FileStaging(const FileStaging&) = delete;
  FileStaging& operator=(const FileStaging&) = delete;
  ~FileStaging();

  // Writes the ranges to a temporary for `target` (links followed, as the
  // user's name for an output), flushed to the disk at commit, with the checks
  // of replaceFileContents.
  // The same target staged again replaces the earlier staging: the last one
  // wins.
  Result<void> stageReplacement(const std::string& target, std::initializer_list<ByteRange> ranges);

  // Stages `target` as stageReplacement does, for a file too large to make in
  // memory first: its bytes are written, in any order, into the temporary
  // whose descriptor this answers, which stays the staging's. The writer ends
  // with finishWriting, told how the writing went: a failure there makes the
  // commit fail, as a failed staging does.
  Result<int> stageForWriting(const std::string& target);
  Result<void> finishWriting(int fd, Result<void> written);

  // The same for the entry `name` of `directory` itself, from bytes or from
  // what `sourceFd` reads: a link of that name is replaced by the file at
  // commit, never written through.
  Result<void> stageReplacementIn(const OutputDirectory& directory, const std::string& name,
                                  std::initializer_list<ByteRange> ranges);
  Result<void> stageReplacementIn(const OutputDirectory& directory, const std::string& name, int sourceFd);

  // Stages a new file `name` in `directory` with what `sourceFd` reads: it is
  // put in place at commit unless something of that name is there by then
  // (which is left as it is).
  Result<void> stageNewFile(const OutputDirectory& directory, const std::string& name, int sourceFd);

  // The run's staging folder inside `directory`, made on first use: a file
  // written into it becomes `directory`/its name at commit, unless a file of
  // that name exists by then (which is left as it is). Answers its path.
  Result<std::string> newFilesDirectory(const std::string& directory);

  // Flushes every staged file to the disk, then puts them in place: the new
  // files first (a texture is there before the scene file that names it), then
  // the replacement for `first` (when given and staged), then the other
  // replacements in the order staged.
  // The whole commit holds the lock of the directory of `first` (or of the
  // first replacement), so two runs committing the same files leave all of
  // one run's files, never some of each. Refused when any file of the run
  // could not be staged. On failure the replacements not yet renamed and the
  // new files of this commit are removed, and the reason is returned (the
  // file it concerns in failedFile()).
  Result<void> commit(const std::string& first = {});

  // The file whose staging or commit failed first; empty when none did.
  const std::string& failedFile() const { return failedFile_; }

  // Removes every temporary and staging folder not committed, and the
  // directories registered with createdDirectory when they are empty.
  void discard();

  // A directory the run created for its files: removed by discard() when
  // nothing else is in it.
  void createdDirectory(const std::string& directory) { createdDirectories_.push_back(directory); }

  bool empty() const { return replacements_.empty() && newFileDirs_.empty(); }

 private:
  struct Replacement {
    std::string path;       // the final file, for messages and ordering
    int dirFd = -1;         // its directory
    std::string name;       // its name there
    std::string temporary;  // the temporary's name there
    int lockFd = -1;        // the temporary, open and flocked while it exists
  };
  struct NewFilesDir {
    std::string path;  // where the files go
    dev_t device;
    ino_t inode;
    int dirFd = -1;
    std::string stagingName;  // ".ztexport-..." inside it
    int stagingFd = -1;
    int markerFd = -1;  // its marker, open and flocked while it exists
  };
  Result<void> stage(const OutputDirectory& directory, const std::string& name,
                     std::initializer_list<ByteRange> ranges, int sourceFd, bool keepExisting);
  const NewFilesDir* newFilesIn(const OutputDirectory& directory, Error& error);
  // Records the run's first failure (commit refuses after it) and answers it.
  Error failed(const std::string& path, Error why);

  std::vector<Replacement> replacements_;
  std::vector<NewFilesDir> newFileDirs_;
  std::vector<std::string> createdDirectories_;
  Error failure_;  // an empty message: none yet
  std::string failedFile_;
};

// Whether staged files are flushed to the disk before they are put in place
// (the default). A caller that flushes a whole tree at once, and records the
// files as done only after that flush (zt2export --batch), turns it off in
// the exports it runs: the flush of each file is the larger part of a small
// export's time on a disk.
void setFlushBeforeCommit(bool flush);
bool flushBeforeCommit();

// Writes all `size` bytes to `fd`, going on after interruptions; false with
// errno set when a write fails.
bool writeAll(int fd, const void* data, std::size_t size);
// The same at `offset` of `fd`, leaving the file's own offset where it is.
bool writeAllAt(int fd, const void* data, std::size_t size, std::uint64_t offset);

// --- Inputs that no output may be ------------------------------------------

// A file by device and inode: the same file under every name and link.
struct FileIdentity {
  dev_t device = 0;
  ino_t inode = 0;
  bool operator==(const FileIdentity&) const = default;
};

// The identity of the file `path` leads to, links followed; false when it
// does not exist (or cannot be looked at).
bool fileIdentity(const std::string& path, FileIdentity& identity);

// The files a run reads, each with what it is to the user ("the scene it is
// exported from", "ZTExport.cfg"). An output checked against them is refused
// when it is one of them by identity (through links and hard links), or, for
// an input that does not exist yet, by its normalised absolute path.
class RunInputs {
 public:
  void add(const std::string& path, const std::string& what);
  // Refuses `output` when it is one of the inputs, with "PATH: WHAT would
  // overwrite INPUT_WHAT", where `what` describes the output ("--depfile").
  Result<void> clash(const std::string& output, const std::string& what) const;

 private:
  struct Input {
    std::string path;
    std::string what;
    bool exists = false;
    FileIdentity identity;
  };
  std::vector<Input> inputs_;
};

// --- Output directories -----------------------------------------------------

// A directory that outputs go into, opened once and worked from by its
// descriptor: a name beneath it is resolved without following a link that
// leads out of it, so a link planted later cannot redirect a write.
class OutputDirectory {
 public:
  OutputDirectory() = default;
  OutputDirectory(const OutputDirectory&) = delete;
  OutputDirectory& operator=(const OutputDirectory&) = delete;
  OutputDirectory(OutputDirectory&& other) noexcept;
  OutputDirectory& operator=(OutputDirectory&& other) noexcept;
  ~OutputDirectory();

  // Opens the directory `path` names (links followed: the user named it).
  Result<void> open(const std::string& path);
  bool isOpen() const { return fd_ >= 0; }
  int fd() const { return fd_; }
  const std::string& path() const { return path_; }

  // Opens the folder `relative` beneath this one into `into`, creating the
  // missing folders when `create` (their paths appended to `made`, outermost
  // first). Refused, with the reason, when ".." or a link would take it
  // outside this directory, or a component is not a folder.
  Result<void> openBeneath(const std::string& relative, bool create, OutputDirectory& into,
                           std::vector<std::string>* made = nullptr) const;

 private:
  int fd_ = -1;
  std::string path_;
};

// --- Small files, folders and removal -------------------------------------

// Writes `text` as the file `path` through a temporary beside it and a
// rename, so a reader sees the old file or the new one whole; not flushed to
// the disk (stamps, dependency files, manifests only save work). A new file
// gets the mode every output gets (0666 under the umask), a replaced one
// keeps its own; a target that is not a regular file, or one with other hard
// links, is refused.
//
// `followLinks`: a name the user gave (a dependency file) is a link followed
// to the file it names, as every output of theirs; a name this program
// chooses inside its output folder (a stamp, the manifest) is not: a link of
// that name is replaced by the file, never written through.
Result<void> writeSmallFile(const std::string& path, std::string_view text, bool followLinks = true);

// Makes the folder `path` and its missing parents; those made are appended
// to `made`, outermost first. Fails with "FOLDER: reason".
Result<void> makeDirectories(const std::string& path, std::vector<std::string>* made = nullptr);

// Removes `path` when it is an empty folder; nothing otherwise.
void removeEmptyDirectory(const std::string& path);

// Removes the file `path` when it is a regular file (not a link) of this
// user; for files whose name this program owns (a stamp beside its output).
// True when it was removed.
bool removeOwnFile(const std::string& path);

// A folder private to one run: "PARENT/PREFIXxxxxxxxxxxxx" (a random part of
// twelve characters) with a marker file inside that proves it this
// program's, the marker locked while the object lives. The destructor removes the
// marker, the regular files the folder holds and the folder; a folder left
// by a killed run is removed the same way by removeAbandonedWorkDirectories.
class WorkDirectory {
 public:
  WorkDirectory() = default;
  WorkDirectory(const WorkDirectory&) = delete;
  WorkDirectory& operator=(const WorkDirectory&) = delete;
  ~WorkDirectory();
  // An empty `parent` is the system's temporary directory. Fails with
  // "PARENT: reason".
  Result<void> create(const std::string& parent, const std::string& prefix);
  const std::string& path() const { return path_; }
  // Removes it now (the destructor's work).
  void remove();

 private:
  std::string path_;
  int lockFd_ = -1;
};

// Removes the work directories in `parent` whose names are `prefix` and a
// random part, that hold the marker, are this user's and whose lock is free:
// their regular files and the folder. A folder with anything else in it keeps it.
void removeAbandonedWorkDirectories(const std::string& parent, const std::string& prefix);

// One batch at a time per output directory: an exclusive lock on the file
// ".ztexport-batch.lock" inside it, made when missing and left in place (a
// lock file removed while another run waits on it would let a third in).
class RunLock {
 public:
  RunLock() = default;
  RunLock(const RunLock&) = delete;
  RunLock& operator=(const RunLock&) = delete;
  ~RunLock();
  // Takes the lock of `directory`, waiting for the run that holds it when
  // `wait`. Fails with ErrorKind::busy when another run holds it and `wait`
  // is not set.
  Result<void> acquire(const std::string& directory, bool wait);

 private:
  int fd_ = -1;
};
