/*
 * recording.h - one run of a handler in the recorder: its input (the scenario), and what the handler did.
 *
 * The recorder links the handlers of switching/ with recording_values.cpp, which replaces the request and answer
 * functions of common/, and with recording_operations.cpp, which replaces the client library. When common/ gets a new
 * function, add it there; until then the recorder does not link.
 */
#ifndef API_RECORDING_H
#define API_RECORDING_H

#include <stdint.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "common/request_values.h"

struct cJSON;

/* A key of the request, and how the handler reads it. */
struct Key {
    std::string name;
    const char *source = "";          /* "exact", "loose" or "decoded" of the query; "form", "json" or "query-json" */
    const char *rule = "";            /* how its value is converted: "uint", "text", "name" and so on */
    uint32_t size = 0;                /* bytes for a text, with its end */
    const NameTable *names = nullptr; /* the names its value is compared with */
};

/* The value of one key in this run. */
struct Value {
    enum Kind { USUAL, OTHER, ABSENT, NOTHING, LARGEST, NAME } kind = USUAL;
    uint32_t row = 0; /* of the key's names, for NAME */
};

/* The value of one output of one operation in this run. */
struct Output {
    enum Kind { MARKER, NUMBER, LARGEST } kind = MARKER;
    uint32_t number = 0;
};

struct Scenario {
    std::string method;
    bool body = true;                    /* the request has the JSON that the handler expects */
    std::map<std::string, Value> values; /* by key; others are USUAL */
    size_t failingCall = 0;              /* index of the call that answers `code` */
    int code = 0;
    std::map<std::pair<size_t, size_t>, Output> outputs; /* by call and operand; others are MARKER */
};

struct Operand {
    const char *name;
    const char *kind; /* as in the list of operations: "in", "list", "out", "text" or "listref" */
    cJSON *value;     /* as the handler sent it */
    uint32_t size;    /* the size that a text's descriptor states */
};

struct Call {
    const char *operation;
    std::vector<Operand> operands;
};

/* The answer, which ends the run. */
struct Answer {
    int code;
    bool lineEnd;
    std::string name; /* of the data object, "" if there is none */
    cJSON *data;      /* the data object, null if there is none */
};

struct Recording {
    Scenario scenario;
    std::vector<Call> calls;
    std::vector<Answer> answers;
    std::set<uint32_t> reported; /* the codes of all tables from which the handler answered a name */
};

/* The current run, and the keys that the endpoint's handler has read so far, in the order of their first look-up. */
extern Recording recording;
extern std::vector<Key> keys;

/*
 * Markers: values that occur nowhere else, so that a value can be followed from a key to an operand, or from an output
 * to an answer. The recorder prints the marker of each key and each output; facts.py reads them.
 */
inline uint32_t numberMarker(size_t key)
{
    return 1001 + (uint32_t)key;
}

/* Short: the smallest buffer for a text has few bytes. */
inline std::string textMarker(size_t key)
{
    return "text" + std::to_string(key);
}

/* Of an output; both indices count from 0. Below 65536, as some outputs have 16 bits. */
inline uint32_t outputMarker(size_t call, size_t operand)
{
    return 40101 + 100 * (uint32_t)call + (uint32_t)operand;
}

inline std::string outputTextMarker(size_t call, size_t operand)
{
    return "o" + std::to_string(outputMarker(call, operand));
}

#endif
