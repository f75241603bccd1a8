// schedd-ready: where a job made ready ahead waits for its instant (see runner/ready_job.h). The
// runner starts it; it is not for operators.
#include "runner/ready_job.h"

int main(int argc, char **argv) { return schedd::runner::ready_job_main(argc, argv); }
