/*
 * openclt_expand.h - how a row of openclt_operations.def becomes a parameter list.
 *
 * A row writes each parameter as kind(name). A prefix before the kind expands it: OPEN_DECLARE_ to the declaration,
 * OPEN_FORWARD_ to the name, OPEN_QUOTE_ to the name as a string.
 */
#ifndef OPENCLT_EXPAND_H
#define OPENCLT_EXPAND_H

#define OPEN_DECLARE_in(name) uint32_t name         /* a number */
#define OPEN_DECLARE_out(name) uint32_t *name       /* a number sent and returned */
#define OPEN_DECLARE_out16(name) uint16_t *name
#define OPEN_DECLARE_out64(name) uint64_t *name
#define OPEN_DECLARE_text(name) OpenBufferDesc *name /* a text sent and returned */
#define OPEN_DECLARE_list(name) VlanIdList name      /* a VLAN list by value, only sent */
#define OPEN_DECLARE_listref(name) VlanIdList *name  /* a VLAN list sent and returned */
#define OPEN_DECLARE_version(name) OpenApiVersion *name

#define OPEN_FORWARD_in(name) name
#define OPEN_FORWARD_out(name) name
#define OPEN_FORWARD_out16(name) name
#define OPEN_FORWARD_out64(name) name
#define OPEN_FORWARD_text(name) name
#define OPEN_FORWARD_list(name) name
#define OPEN_FORWARD_listref(name) name
#define OPEN_FORWARD_version(name) name

#define OPEN_QUOTE_in(name) #name
#define OPEN_QUOTE_out(name) #name
#define OPEN_QUOTE_out16(name) #name
#define OPEN_QUOTE_out64(name) #name
#define OPEN_QUOTE_text(name) #name
#define OPEN_QUOTE_list(name) #name
#define OPEN_QUOTE_listref(name) #name
#define OPEN_QUOTE_version(name) #name

/* OPEN_EACH(prefix, parameters...) expands each of at most six parameters, with a comma before it. */
#define OPEN_EACH_0(prefix)
#define OPEN_EACH_1(prefix, a) , prefix##a
#define OPEN_EACH_2(prefix, a, b) , prefix##a, prefix##b
#define OPEN_EACH_3(prefix, a, b, c) , prefix##a, prefix##b, prefix##c
#define OPEN_EACH_4(prefix, a, b, c, d) , prefix##a, prefix##b, prefix##c, prefix##d
#define OPEN_EACH_5(prefix, a, b, c, d, e) , prefix##a, prefix##b, prefix##c, prefix##d, prefix##e
#define OPEN_EACH_6(prefix, a, b, c, d, e, f) , prefix##a, prefix##b, prefix##c, prefix##d, prefix##e, prefix##f
#define OPEN_PICK(none, a, b, c, d, e, f, chosen, ...) chosen
#define OPEN_EACH(prefix, ...)                                                                                  \
    OPEN_PICK(0 __VA_OPT__(, ) __VA_ARGS__, OPEN_EACH_6, OPEN_EACH_5, OPEN_EACH_4, OPEN_EACH_3, OPEN_EACH_2, \
              OPEN_EACH_1, OPEN_EACH_0)                                                                         \
    (prefix __VA_OPT__(, ) __VA_ARGS__)

#endif
