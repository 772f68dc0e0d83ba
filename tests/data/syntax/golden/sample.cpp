#include <cstdio>
/* block
   comment */
int main() {
  // line comment
  const char *s = "a\"b";  // tail
  char c = '\n';
  return widget(s, c);
}
