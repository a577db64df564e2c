// The tests' shorthand around the tools' ChildProcess: a program started in a
// folder with a few more variables, and counting text in what it wrote.
#ifndef FACEDET_TEST_PROCESS_HELPERS_H
#define FACEDET_TEST_PROCESS_HELPERS_H

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "child_process.h"

// `program` with `args` in `workDir`, in the parent's environment plus `env`;
// its output in workDir/childN.out and .err.
std::unique_ptr<ChildProcess> spawn(const std::string &program, std::vector<std::string> args,
                                    const std::string &workDir, std::map<std::string, std::string> env = {});

// Number of times `needle` occurs in `haystack`.
size_t count_of(const std::string &haystack, const std::string &needle);

#endif
