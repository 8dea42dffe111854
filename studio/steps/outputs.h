#pragma once

#include <span>
#include <string>
#include <vector>

namespace studio {

// One rule for all that is written: a file makes way only for one of its own kind, and none that is
// in use as a source does. What can be made again from the scene, pictures and lists, is replaced
// when a program is told to write there; Mokset files and, by commands, scenes and models only if
// the user says so, since others may live on them.

enum class OutputKind { Scene, Mokset, Picture, Placements, Params, Model };

/// A file that something is read from.
struct SourceFile {
  std::string path;
  std::string what;  // for messages, behind "it is": "the job"
};

/// What is written, and over what.
struct Output {
  std::string path;
  OutputKind kind;
  bool replace = false;  // the user has said so
};

/// Why a file can't be opened as a scene, as far as its beginning tells; empty if it can.
std::string WhyNoScene(const std::string& file);

/// Why the output can't be written, one line that names the path; empty if it can. `how` tells the
/// user how to say that the file may go.
std::string WhyNotWritten(const Output& output, std::span<const SourceFile> sources,
                          const std::string& how);

}  // namespace studio
