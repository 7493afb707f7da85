// A program that declares the functions with C++ linkage by itself, as those do that came before the headers.

void convertMacCharToUnicode(long*);
long* convertMacStrToUnicodeLongStr(long*, unsigned char*, long);
void copyTextLong(long*, long*, long);
char* convertLongStrToUtf8(long*);
int longStrEqual(long*, long*);
void limiteemails(char*);
void convertlftocrlf(char*);

int main() {
  unsigned char mac[] = "a\xDB";
  long character = 0xDB, text[3], copy[3];
  convertMacCharToUnicode(&character);
  copyTextLong(copy, convertMacStrToUnicodeLongStr(text, mac, 2), 2);
  if (longStrEqual(text, copy) != 1 || copy[1] != character) return 1;
  char lines[8] = "\n,";
  limiteemails(lines);
  convertlftocrlf(lines);
  return lines[0] == '\r' && *convertLongStrToUtf8(copy) == 'a' ? 0 : 1;
}
