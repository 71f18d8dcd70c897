/*
 * version.cpp - the program's version, where it can be read without running it: readelf -p .version switching_v2.cgi.
 * The section is not loaded.
 */
asm(".pushsection .version, \"\", %progbits\n"
    ".asciz \"switching_v2.cgi " SWITCHING_VERSION "\"\n"
    ".popsection\n");
