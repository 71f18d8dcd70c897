/*
 * floor_answer.h - the ready-made answer of both floors.
 */
#ifndef BENCH_FLOOR_ANSWER_H
#define BENCH_FLOOR_ANSWER_H

static const char answer[] = "Content-Type: application/json\r\n\r\n"
                             "{\n\t\"bridge\":\t{\n\t\t\"priority\":\t32768\n\t},\n"
                             "\t\"resp\":\t{\n\t\t\"respCode\":\t0,\n\t\t\"respMsg\":\t\"Success\",\n"
                             "\t\t\"status\":\t\"success\"\n\t}\n}";

#endif
