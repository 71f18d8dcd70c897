/*
 * recording.h - what a handler is given in one run of the recorder, and what it did with it.
 *
 * The recorder links the handlers of switching/ against a vocabulary that records (recording_words.cpp, in place of the
 * request and answer words of common/) and operations that record (recording_operations.cpp). A word that is new in
 * common/ has to be added there: until then the recorder does not link.
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

/* A key of the request, as its handler looks for it. */
struct Key {
    std::string name;
    const char *source = "";          /* "exact", "loose" or "decoded" of the query; "form", "json" or "query-json" */
    const char *rule = "";            /* what its value becomes: "uint", "text", "word" and so on */
    uint32_t size = 0;                /* of the storage of a text, with its end */
    const NameTable *words = nullptr; /* the words it is compared with */
};

/* What one key is in this run; Value::USUAL where nothing else is said. */
struct Value {
    enum Kind { USUAL, OTHER, ABSENT, NOTHING, LARGEST, WORD } kind = USUAL;
    uint32_t word = 0; /* the row of the table */
};

/* What one output of one operation is in this run: each its own marker where nothing else is said. */
struct Output {
    enum Kind { MARKER, NUMBER, LARGEST } kind = MARKER;
    uint32_t number = 0;
};

struct Scenario {
    std::string method;
    bool body = true;                               /* there is JSON where JSON is expected */
    std::map<std::string, Value> values;            /* by key */
    size_t failingCall = 0;                         /* the operation that answers `code`, counted from 0 */
    int code = 0;
    std::map<std::pair<size_t, size_t>, Output> outputs; /* by call and operand */
};

struct Operand {
    const char *name;
    const char *kind; /* the word of the operation list */
    cJSON *value;     /* as it was sent */
    uint32_t size;    /* of a text */
};

struct Call {
    const char *operation;
    std::vector<Operand> operands;
};

/* The answer, and with it the end of the run. */
struct Answer {
    int code;
    bool lineEnd;
    std::string name; /* of the data, "" without any */
    cJSON *data;      /* an object, null without any */
};

struct Recording {
    Scenario scenario;
    std::vector<Call> calls;
    std::vector<Answer> answers;
    std::set<uint32_t> reported; /* the codes of the tables from which words were reported */
};

/* The run that is under way, and the keys its endpoint was seen to look for, in the order of their first look-up. */
extern Recording recording;
extern std::vector<Key> keys;

#endif
