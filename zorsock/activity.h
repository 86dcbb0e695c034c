/* Client activity notices (docs/protocol.md): the client tells the server
 * what it is doing, so that a simulated room can play along. A server that
 * does not care ignores them.
 */
#ifndef ZORSOCK_ACTIVITY_H
#define ZORSOCK_ACTIVITY_H

#ifdef __cplusplus
extern "C" {
#endif

#define ZOR_CLIENT_ACTIVITY 0x530  /* the notice's request code (set integer) */
#define ZOR_ACTIVITY_IDLE 0x00
#define ZOR_ACTIVITY_ALIGN 0x10    /* + index (0..2) of the wand alignment point wanted; + 3: all taken */

/* Sends a notice. Never queues an error and leaves zorGetStatus alone:
 * returns 1 when the server took it, 0 otherwise. */
int zorNotify(int activity);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* ZORSOCK_ACTIVITY_H */
