/* Prints the file its one argument names. Built like zorbus-host and started
   the way the tests start it on a fake machine, it tells whether a program of
   this build's word size sees the machine's files there. */
#include <stdio.h>

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    FILE* file = fopen(argv[1], "r");
    if (!file) {
        perror(argv[1]);
        return 1;
    }
    for (int c; (c = getc(file)) != EOF;) putchar(c);
    fclose(file);
    return 0;
}
