#pragma once

#include <filesystem>

/// How many threads can compute at the same time in this process: the CPUs of the calling thread's affinity
/// mask, but no more than the quota that a cgroup of the process sets, version 1 or 2, rounded up. At
/// least 1.
///
/// What can't be read sets no bound. Neither std::thread::hardware_concurrency nor the thread libraries of
/// the system look at the quota, which is all that bounds most containers.
///
/// @param root where /proc and /sys are found.
unsigned usableCpus(const std::filesystem::path& root = "/");

/// Restricts the process, with all threads and processes that it starts later, to the first `count` CPUs of
/// those that it may use. Whatever counts CPUs to choose a number of threads, the effect and the libraries among
/// them, counts these.
void restrictToCpus(unsigned count);
