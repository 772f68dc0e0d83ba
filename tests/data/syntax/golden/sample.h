#ifndef WIDGET_H
#define WIDGET_H "w\\"
/** doc **/
struct Widget { size_t n; };  // no /* here
#endif
/* never closed
