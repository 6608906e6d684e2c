#ifndef BENCH_JOBS_H
#define BENCH_JOBS_H

// The groups of jobs. Each function registers its group, and only `main` calls it.

void addChannels();
void addConferences();
void addConversions();
void addKernels();
void addFilters();
void addPackets();
void addResamplers();
void addTones();

/// Other libraries, for the jobs above that they support.
void addOthers();

#endif
