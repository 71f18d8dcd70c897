/*
 * measure.c - measures what processes cost. Runs commands in rounds. Each round runs every command in a new order, so
 * that a change of the machine's load affects all of them alike. Prints the medians.
 *
 *   measure ROUNDS SECONDS -- CASE [-- CASE]...     CASE: NAME [<INPUT] [VARIABLE=VALUE]... PROGRAM [ARGUMENT]...
 *
 * A command gets exactly the environment of its case and HTTP_SESSION of measure's own environment (a secret must not be
 * in arguments, which other users can read). It gets its input from the file INPUT; its output is dropped. No
 * round begins after SECONDS. Output, one line for each case, separated by tabs: name, CPU time (user and system), wall
 * time (both in microseconds), number of rounds.
 */
#include <fcntl.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>

enum { CASES_MAX = 32, VARIABLES_MAX = 32 };

struct Case {
    const char *name;
    const char *input;
    char *environment[VARIABLES_MAX + 1];
    char **command;
    double *cpu, *wall; /* one value for each round */
};

static void fail(const char *what, const char *name)
{
    fprintf(stderr, "measure: %s: %s\n", what, name);
    exit(1);
}

/* Reads a case from its arguments, which end with a null; the last ones become its command's argument vector. */
static void readCase(char **argument, struct Case *one)
{
    static char session[128];
    snprintf(session, sizeof session, "HTTP_SESSION=%s", getenv("HTTP_SESSION"));
    one->name = *argument++;
    one->input = "/dev/null";
    if (*argument && **argument == '<')
        one->input = *argument++ + 1;
    int i = 0;
    one->environment[i++] = session;
    for (; *argument && strchr(*argument, '='); argument++) {
        if (i == VARIABLES_MAX)
            fail("too many variables", one->name);
        one->environment[i++] = *argument;
    }
    if (!*argument)
        fail("no program", one->name);
    one->command = argument;
}

/* Splits the arguments into cases at each "--", which becomes the end of the case before it. */
static int readCases(char **argument, struct Case *cases)
{
    int count = 0;
    while (*argument) {
        if (strcmp(*argument, "--") != 0 || !argument[1] || count == CASES_MAX)
            fail("a case is expected, not", *argument);
        *argument++ = NULL;
        char **start = argument;
        while (*argument && strcmp(*argument, "--") != 0)
            argument++;
        char *separator = *argument;
        *argument = NULL;
        readCase(start, &cases[count++]);
        *argument = separator;
    }
    return count;
}

static double micros(struct timeval time)
{
    return (double)time.tv_sec * 1e6 + (double)time.tv_usec;
}

static double microsNow(void)
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)now.tv_sec * 1e6 + (double)now.tv_nsec / 1e3;
}

static void run(const struct Case *one, double *cpu, double *wall)
{
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 0, one->input, O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, 1, "/dev/null", O_WRONLY, 0);

    pid_t pid;
    int status;
    struct rusage usage;
    double start = microsNow();
    if (posix_spawn(&pid, one->command[0], &files, NULL, one->command, (char **)one->environment) != 0)
        fail("cannot be started", one->name);
    if (wait4(pid, &status, 0, &usage) != pid || status != 0)
        fail("failed", one->name);
    *wall = microsNow() - start;
    *cpu = micros(usage.ru_utime) + micros(usage.ru_stime);
    posix_spawn_file_actions_destroy(&files);
}

static void shuffle(int *order, int count)
{
    for (int i = count - 1; i > 0; i--) {
        int j = rand() % (i + 1); /* without a seed: the orders are the same every time */
        int other = order[i];
        order[i] = order[j];
        order[j] = other;
    }
}

static int compare(const void *a, const void *b)
{
    double difference = *(const double *)a - *(const double *)b;
    return (difference > 0) - (difference < 0);
}

static double median(double *values, int count)
{
    qsort(values, (size_t)count, sizeof *values, compare);
    return (values[(count - 1) / 2] + values[count / 2]) / 2;
}

int main(int argc, char **argv)
{
    static struct Case cases[CASES_MAX];
    int rounds = argc > 1 ? atoi(argv[1]) : 0;
    double seconds = argc > 2 ? atof(argv[2]) : 0;
    int count = rounds > 0 && seconds > 0 ? readCases(argv + 3, cases) : 0;
    if (count == 0 || !getenv("HTTP_SESSION"))
        fail("usage", "HTTP_SESSION=TOKEN measure ROUNDS SECONDS -- NAME [<INPUT] [VARIABLE=VALUE]... PROGRAM [ARGUMENT]... [-- ...]");

    int order[CASES_MAX];
    for (int i = 0; i < count; i++) {
        order[i] = i;
        cases[i].cpu = calloc((size_t)rounds, sizeof(double));
        cases[i].wall = calloc((size_t)rounds, sizeof(double));
        if (!cases[i].cpu || !cases[i].wall)
            fail("no memory", cases[i].name);
    }
    double end = microsNow() + seconds * 1e6;
    int done = 0;
    for (; done < rounds && (done == 0 || microsNow() < end); done++) {
        shuffle(order, count);
        for (int i = 0; i < count; i++) {
            struct Case *one = &cases[order[i]];
            /* The first of two runs does not count: it fills the caches that the command before has emptied. */
            run(one, &one->cpu[done], &one->wall[done]);
            run(one, &one->cpu[done], &one->wall[done]);
        }
    }
    for (int i = 0; i < count; i++)
        printf("%s\t%.1f\t%.1f\t%d\n", cases[i].name, median(cases[i].cpu, done), median(cases[i].wall, done), done);
    return 0;
}
