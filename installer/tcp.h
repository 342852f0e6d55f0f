// Who this machine is.
#pragma once

extern int tcp_is_init; // 1 after tcp_init
extern int contimeout;  // milliseconds to wait for a connection

// The machine's name, or "127.0.0.1" with an error in the log. Returns the buffer, never null.
char *tcp_hostname(char *buffer, int size);

// Notes that sockets are ready; always 1.
int tcp_init();

// The last address of a host as four decimal numbers. Returns the buffer; null for an unknown host
// (logged) and for one without addresses.
char *tcp_getipbyname(const char *name, char *buffer, int size);

// 1 when the text holds digits and points only, the empty text included; 0 for null.
int tcp_isip(const char *text);
