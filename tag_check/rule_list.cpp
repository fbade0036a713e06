// The rules of the checker.
#include "rule_list.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "type_names.h"

namespace tag_check {
namespace {

std::string indexed_line(uint32_t id) {
  return "V" + std::to_string(id) + ",INT,,,,,," + std::to_string(id) + ",1,0,0,\n";
}

// Little endian, with its mark.
std::string utf16(const std::string& ascii) {
  std::string text = "\xFF\xFE";
  for (const char sign : ascii) text += {sign, '\0'};
  return text;
}

std::string long_line() { return std::string(300, 'x') + ",INT,,,,,,0,1,0,0,\n"; }

std::string bracket_name() {
  std::string name;
  for (int i = 0; i < 75; ++i) name += "[1]";
  return name + ",INT,,,,,,0,1,0,0,\n";
}

std::string many_records() {
  std::string text;
  for (int i = 0; i <= 65536; ++i) text += "V" + std::to_string(i) + ",INT,,,,,," + std::to_string(i) + ",1,0,0,\n";
  return text;
}

std::string long_run() {
  std::string text;
  for (uint32_t id = 0x40000; id < 0x40000 + 101; ++id) text += indexed_line(id);
  return text;
}

std::string many_runs() {
  std::string text;
  for (uint32_t run = 0; run < 101; ++run) {
    const uint32_t id = 0x40000 + run * 8192;
    text += indexed_line(id) + indexed_line(id + 1);
  }
  return text;
}

void add_file_rules(std::vector<Rule>* rules) {
  rules->push_back({"T001", Severity::kError, "last line without a trailing newline",
                    "The driver ignores a last line without a trailing newline.", "End the file with a newline.",
                    "Speed,INT,,,,,,0,1,0,0,\n", "Speed,INT,,,,,,0,1,0,0,"});
  rules->push_back({"T002", Severity::kError, "line longer than 255 bytes",
                    "The driver drops 255 bytes at a time and reads the rest as a line of its own.",
                    "Shorten the line.", "Speed,INT,,,,,,0,1,0,0,\n", long_line()});
  rules->push_back({"T003", Severity::kError, "zero byte in a line", "The driver ignores a line with a zero byte.",
                    "Remove the byte.", "Speed,INT,,,,,,0,1,0,0,\n", std::string("Speed\0,INT,,,,,,0,1,0,0,\n", 25)});
  rules->push_back({"T004", Severity::kError, "byte order mark",
                    "A byte order mark at the beginning of the file becomes part of the first name.",
                    "Save the file as UTF-8 without a byte order mark.", "Speed,INT,,,,,,0,1,0,0,\n",
                    "\xEF\xBB\xBFSpeed,INT,,,,,,0,1,0,0,\n"});
  rules->push_back({"T005", Severity::kWarning, "empty line",
                    "Every line is a record: an empty line counts and shifts the numbers of all records after it.",
                    "Remove the line, or keep it on purpose to reserve a number.", "Speed,INT,,,,,,0,1,0,0,\n",
                    "Speed,INT,,,,,,0,1,0,0,\n\n"});
  rules->push_back({"T006", Severity::kError, "no variable",
                    "The driver does not load a file without a record: every transfer fails. Headings and empty lines "
                    "are records without a variable.",
                    "Declare at least one variable.", "Speed,INT,,,,,,0,1,0,0,\n", ""});
  rules->push_back({"T007", Severity::kError, "UTF-16",
                    "The driver reads bytes of UTF-8; every second one is zero here.",
                    "Save the file as UTF-8 without a byte order mark.", "Speed,INT,,,,,,0,1,0,0,\n",
                    utf16("Speed,INT,,,,,,0,1,0,0,\n")});
  rules->push_back({"T008", Severity::kError, "fields not separated by commas",
                    "The driver splits lines only at commas: the whole line becomes the name.",
                    "Save the file with commas between the fields.", "Speed,INT,,,,,,0,1,0,0,\n",
                    "Speed;INT;;;;;;0;1;0;0;\n"});
  rules->push_back({"T009", Severity::kError, "fields in quotes", "There is no quoting: quotes are part of the field.",
                    "Save the file without quotes.", "Speed,INT,,,,,,0,1,0,0,\n", "\"Speed\",INT,,,,,,0,1,0,0,\n"});

  rules->push_back(
      {"T010", Severity::kWarning, "file name that the driver does not ask for",
       "The driver asks for \"PLC\", the address as one upper-case hexadecimal number, \"_\", the area and \".csv\".",
       "Rename the panel's file, for example to PLCC0A8000A_0.csv for area 0 of 192.168.0.10. plc-host accepts any "
       "name with --tags.",
       "Speed,INT,,,,,,0,1,0,0,\n", "Speed,INT,,,,,,0,1,0,0,\n"});
  rules->push_back({"T011", Severity::kError, "file name of another controller",
                    "The address in the file name is not that of the controller that the file is meant for.",
                    "Rename the file.", "Speed,INT,,,,,,0,1,0,0,\n", "Speed,INT,,,,,,0,1,0,0,\n"});
  rules->push_back({"T012", Severity::kError, "lines that end in a carriage return only",
                    "The driver ends lines at line feeds: it reads such lines as one.",
                    "Save the file with a line feed at the end of each line.", "Speed,INT,,,,,,0,1,0,0,\n",
                    "Speed,INT,,,,,,0,1,0,0,\r"});
  rules->push_back(
      {"T013", Severity::kInfo, "carriage returns before line feeds",
       "A carriage return is part of the line's last column. It does no harm here, but would in a program's name.",
       "Save the file with line feeds only.", "Speed,INT,,,,,,0,1,0,0,\n", "Speed,INT,,,,,,0,1,0,0,\r\n"});
  rules->push_back({"T014", Severity::kError, "comma within a field",
                    "Except for the subscripts of a name, a comma begins the next column.",
                    "Write the field without a comma. Join ranges with _, and write whole numbers.",
                    "Speed,INT,,,,,,0,1,0,0,\n", "Table;INT;[0..9,0..4];;;;;0;1;0;0;\n"});
  rules->push_back({"T015", Severity::kError, "blanks around a field",
                    "Blanks are part of a field: the driver does not know such a type, range or scope.",
                    "Remove the blanks.", "Speed,INT,,,,,,0,1,0,0,\n", "Speed, INT,,,,,,0,1,0,0,\n"});
  rules->push_back({"T016", Severity::kError, "spreadsheet's own file",
                    "The driver reads lines of text; a spreadsheet's own file has none.", "Save it there as CSV.",
                    "Speed,INT,,,,,,0,1,0,0,\n", "PK\x03\x04\n"});
}

void add_name_rules(std::vector<Rule>* rules) {
  rules->push_back({"T020", Severity::kError, "no name",
                    "The driver would ask the controller for a variable without a name.",
                    "Give the variable's name in column 1.", "Speed,INT,,,,,,0,1,0,0,\n", ",INT,,,,,,0,1,0,0,\n"});
  rules->push_back({"T021", Severity::kWarning, "blanks around a name or its subscripts",
                    "Blanks are part of the name, and the controller does not know such a variable.",
                    "Remove the blanks.", "Speed,INT,,,,,,0,1,0,0,\n", " Speed,INT,,,,,,0,1,0,0,\n"});
  rules->push_back({"T022", Severity::kError, "unpaired brackets",
                    "A '[' without a ']' joins the columns after it to the name.", "Close the bracket.",
                    "Speed,INT,,,,,,0,1,0,0,\n", "Grid[1,INT,,,,,,0,1,0,0,,\n"});
  rules->push_back({"T023", Severity::kError, "invalid UTF-8", "The driver sends other characters than the name has.",
                    "Save the file as UTF-8.", "Speed,INT,,,,,,0,1,0,0,\n", "Gr\xF6\xDF,INT,,,,,,0,1,0,0,\n"});
  rules->push_back({"T024", Severity::kError, "character above U+FFFF",
                    "Characters beyond the Basic Multilingual Plane lose their upper bits.", "Rename the variable.",
                    "Speed,INT,,,,,,0,1,0,0,\n", "Fan\xF0\x9F\x98\x80,INT,,,,,,0,1,0,0,\n"});
  rules->push_back({"T025", Severity::kError, "quotes in a name",
                    "Fields cannot be quoted: the driver sends quotes as part of the name.", "Remove the quotes.",
                    "Speed,INT,,,,,,0,1,0,0,\n", "Spe\"ed,INT,,,,,,0,1,0,0,\n"});
  rules->push_back({"T026", Severity::kInfo, "percent sign in a name",
                    "The driver sends the name unchanged. Tools that use names as format strings may crash.",
                    "Rename the variable if other tools read the file.", "Speed,INT,,,,,,0,1,0,0,\n",
                    "Load%,INT,,,,,,0,1,0,0,\n"});
  rules->push_back({"T027", Severity::kError, "name too long",
                    "With a '#' for each subscript the name has more than 255 bytes, and the driver cuts it.",
                    "Shorten the name.", "Speed,INT,,,,,,0,1,0,0,\n", bracket_name()});
  rules->push_back(
      {"T028", Severity::kError, "invisible character in a name",
       "The driver sends controls, direction marks, unusual blanks and characters without width as part of "
       "the name. A reader mistakes the name for another, and a terminal may obey the character.",
       "Write the name again without the character.", "Speed,INT,,,,,,0,1,0,0,\n",
       "Spe\xE2\x80\xAE"
       "ed,INT,,,,,,0,1,0,0,\n"});
  rules->push_back({"T029", Severity::kError, "spreadsheet error in place of a name",
                    "The controller does not know such a variable: the spreadsheet read a text that begins with =, + "
                    "or - as a formula.",
                    "Write the name again into a cell with the format Text.", "Speed,INT,,,,,,0,1,0,0,\n",
                    "#NAME?,INT,,,,,,0,1,0,0,\n"});
}

void add_range_rules(std::vector<Rule>* rules) {
  rules->push_back({"T030", Severity::kError, "malformed ranges",
                    "Ranges are [low..high], joined by _ within the brackets. The driver does not read anything else.",
                    "Write [0..9], [0..9_0..4] or [0..9_0..4_0..2].", "Table,INT,[0..9],,,,,0,1,0,0,\n",
                    "Table,INT,[0-9],,,,,0,1,0,0,\n"});
  rules->push_back({"T031", Severity::kError, "more than three ranges",
                    "With more than three ranges the driver reads only the first.", "Declare at most three.",
                    "Table,INT,[0..9],,,,,0,1,0,0,\n", "Table,INT,[0..1_0..1_0..1_0..1],,,,,0,1,0,0,\n"});
  rules->push_back({"T032", Severity::kError, "reversed range", "The lower bound comes first.", "Swap the bounds.",
                    "Table,INT,[0..9],,,,,0,1,0,0,\n", "Table,INT,[9..0],,,,,0,1,0,0,\n"});
  rules->push_back({"T033", Severity::kError, "range without an element",
                    "The extent is 0: the driver cannot form a subscript, and every transfer fails.",
                    "Correct the bounds.", "Table,INT,[0..9],,,,,0,1,0,0,\n", "Table,INT,[1..0_0..3],,,,,0,1,0,0,\n"});
  rules->push_back({"T034", Severity::kWarning, "negative bound", "The controller has no negative subscripts.",
                    "Correct the bounds.", "Table,INT,[0..9],,,,,0,1,0,0,\n", "Table,INT,[-1..3],,,,,0,1,0,0,\n"});
  rules->push_back(
      {"T035", Severity::kInfo, "lower bound other than 0",
       "One-dimensional arrays are addressed by subscript: the first element has the offset of its lower bound.",
       "Give the host the subscript as the element offset.", "Table,INT,[0..9],,,,,0,1,0,0,\n",
       "Table,INT,[1..9],,,,,0,1,0,0,\n"});
  rules->push_back({"T036", Severity::kWarning, "reads and writes name different elements",
                    "Reads swap the lower bounds of the ranges, and word writes of two dimensions omit them.",
                    "Declare the array with ranges from 0, or only read it.", "Grid,INT,[0..9_0..4],,,,,0,1,0,0,\n",
                    "Grid,INT,[1..9_2..4],,,,,0,1,0,0,\n"});
}

void add_type_rules(std::vector<Rule>* rules) {
  rules->push_back({"T040", Severity::kError, "no type", "A variable without a type cannot be read.",
                    "Write a type name in column 2.", "Speed,INT,,,,,,0,1,0,0,\n", "Speed,,,,,,,0,1,0,0,\n"});
  static const std::string one_of = "Use one of " + all_types() + ".";
  rules->push_back({"T041", Severity::kError, "unknown type", "The driver leaves the variable without a type.",
                    one_of.c_str(), "Speed,INT,,,,,,0,1,0,0,\n", "Speed,INTEGER,,,,,,0,1,0,0,\n"});
  rules->push_back({"T042", Severity::kError, "type not in upper case", "Type names count only in upper case.",
                    "Write the type in upper case.", "Speed,INT,,,,,,0,1,0,0,\n", "Speed,int,,,,,,0,1,0,0,\n"});
  rules->push_back({"T043", Severity::kError, "heading line",
                    "A tag file has no headings: the line is record 0 and shifts the numbers of all others.",
                    "Remove the line, and let the ids in column 8 begin at 0.", "Speed,INT,,,,,,0,1,0,0,\n",
                    "Name,Type,Ranges,Length,5,6,7,Id,Global,Flag,Program,Scope\n"});
  rules->push_back({"T044", Severity::kError, "two lengths or two ranges",
                    "Column 3 has the ranges and column 4 the length; the type contains others.",
                    "Leave one of them out.", "Name,STRING,,20,,,,0,1,0,0,\n", "Name,STRING(20),,30,,,,0,1,0,0,\n"});
}

void add_string_rules(std::vector<Rule>* rules) {
  rules->push_back({"T050", Severity::kError, "STRING without a length",
                    "Without a length the driver writes the variable as a bit, not as a string.",
                    "Give the length in column 4.", "Name,STRING,,20,,,,0,1,0,0,\n", "Name,STRING,,,,,,0,1,0,0,\n"});
  rules->push_back({"T051", Severity::kWarning, "length of another type",
                    "Only a STRING has a length; the driver ignores it.", "Remove the length.",
                    "Name,STRING,,20,,,,0,1,0,0,\n", "Speed,INT,,20,,,,0,1,0,0,\n"});
  rules->push_back({"T052", Severity::kError, "malformed length", "The length is a decimal from 1 to 9999999.",
                    "Correct the length.", "Name,STRING,,20,,,,0,1,0,0,\n", "Name,STRING,,x,,,,0,1,0,0,\n"});
  rules->push_back({"T053", Severity::kWarning, "string longer than reads reach",
                    "A read that begins beyond character 1024 names nothing.",
                    "Read such strings from their beginning only.", "Name,STRING,,20,,,,0,1,0,0,\n",
                    "Name,STRING,,2000,,,,0,1,0,0,\n"});
  rules->push_back({"T054", Severity::kWarning, "STRING with ranges",
                    "The driver treats an array of strings as one string.", "Declare its elements one by one.",
                    "Name,STRING,,20,,,,0,1,0,0,\n", "Name,STRING,[0..9],20,,,,0,1,0,0,\n"});
}

void add_id_rules(std::vector<Rule>* rules) {
  rules->push_back({"T060", Severity::kError, "fewer than eight columns",
                    "Without column 8 the variable has no id, no scope and no device.",
                    "Write columns 1 to 8 at least; plc-host tags --new writes lines from names and types.",
                    "Speed,INT,,,,,,0,1,0,0,\n", "Speed,INT,,\n"});
  rules->push_back({"T061", Severity::kError, "malformed id", "Column 8 is a decimal.", "Correct the id.",
                    "Speed,INT,,,,,,0,1,0,0,\n", "Speed,INT,,,,,,x,1,0,0,\n"});
  rules->push_back({"T062", Severity::kError, "indexed id on a line without 12 columns",
                    "The fifth column from the line's end decides whether a line is indexed. Only with exactly 12 "
                    "columns it is column 8.",
                    "Write columns 9 to 12.",
                    "V262144,INT,,,,,,262144,1,0,0,\nV262145,INT,,,,,,262145,1,0,0,\n_end,INT,,,,,,262146,1,0,0,\n",
                    "Speed,INT,,,,,,262144\n"});
  rules->push_back({"T063", Severity::kError, "device on an indexed line",
                    "With a column 13 the fifth column from the line's end is column 9, so the line is a plain record.",
                    "Remove column 13.",
                    "V262144,INT,,,,,,262144,1,0,0,\nV262145,INT,,,,,,262145,1,0,0,\n_end,INT,,,,,,262146,1,0,0,\n",
                    "Speed,INT,,,,,,262144,1,0,0,,DM\n"});
  rules->push_back({"T064", Severity::kWarning, "id that differs from the record number",
                    "Hosts address plain variables by their place in the file. The driver compares the id in column 8 "
                    "only when it receives strings.",
                    "Look for a missing or surplus line, then write the record number.", "Speed,INT,,,,,,0,1,0,0,\n",
                    "Speed,INT,,,,,,5,1,0,0,\n"});
  rules->push_back({"T065", Severity::kWarning, "columns 9 to 11 all empty",
                    "The id loses its last digit when the driver decides whether the line is indexed.",
                    "Fill the columns, for instance with 0.", "Speed,INT,,,,,,0,1,0,0,\n",
                    "Speed,INT,,,,,,0,,,,MAIN\n"});
  rules->push_back({"T066", Severity::kWarning, "more than 13 columns",
                    "The driver reads 13 columns and counts five from the line's end.", "Remove the columns.",
                    "Speed,INT,,,,,,0,1,0,0,\n", "Speed,INT,,,,,,0,1,0,0,,DM ,x\n"});
  rules->push_back({"T067", Severity::kError, "record that cannot be addressed",
                    "A host can address the plain records 0 to 65535.", "Use indexed ids.", "Speed,INT,,,,,,0,1,0,0,\n",
                    many_records()});
  rules->push_back({"T068", Severity::kError, "no id", "The driver uses 0, and compares it when it receives strings.",
                    "Write the record number in column 8.", "Speed,INT,,,,,,0,1,0,0,\n", "Speed,INT,,,,,,,1,0,0,\n"});
  rules->push_back({"T069", Severity::kError, "column missing or too many",
                    "The driver counts columns: it takes others for the id, the scope and the device.",
                    "Write columns 5, 6 and 7 as well, which are empty: the id is column 8.",
                    "Speed,INT,,,,,,0,1,0,0,\n", "Speed,INT,,,,,0,1,0,0,\n"});
}

void add_scope_rules(std::vector<Rule>* rules) {
  rules->push_back({"T070", Severity::kWarning, "column 9 neither 0 nor 1", "Any value but 1 makes the variable local.",
                    "Write 1 for a global variable, 0 for a local one.", "Step,INT,,,,,,0,0,0,1,MAIN\n",
                    "Speed,INT,,,,,,0,x,0,0,MAIN\n"});
  rules->push_back({"T071", Severity::kError, "local variable without a program",
                    "The driver cannot find the program's number in the controller's directory.",
                    "Give the program's name in column 12, or make the variable global.",
                    "Step,INT,,,,,,0,0,0,1,MAIN\n", "Step,INT,,,,,,0,0,0,1,\n"});
  rules->push_back({"T072", Severity::kInfo, "global variable with a program", "The driver ignores the program.",
                    "Remove the program, or write 0 in column 9.", "Step,INT,,,,,,0,0,0,1,MAIN\n",
                    "Speed,INT,,,,,,0,1,0,0,MAIN\n"});
  rules->push_back({"T073", Severity::kError, "carriage return in a program name",
                    "Lines end in a line feed. A carriage return before it becomes part of the program's name, which "
                    "then matches nothing.",
                    "Save the file with line feeds only.", "Step,INT,,,,,,0,0,0,1,MAIN\n",
                    "Step,INT,,,,,,0,0,0,1,MAIN\r\n"});
  rules->push_back(
      {"T074", Severity::kWarning, "malformed program number",
       "Column 11 is a decimal from 0 to 255. The driver uses its low 8 bits when the directory has no match.",
       "Correct the number.", "Step,INT,,,,,,0,0,0,1,MAIN\n", "Step,INT,,,,,,0,0,0,300,MAIN\n"});
  rules->push_back({"T075", Severity::kWarning, "program within a name",
                    "The driver asks for the whole name, and the controller does not know such a variable.",
                    "Write only the name in column 1, its program in column 12 and 0 in column 9.",
                    "Step,INT,,,,,,0,0,0,1,MAIN\n", "MAIN/Step,INT,,,,,,0,1,0,0,\n"});
  rules->push_back(
      {"T076", Severity::kWarning, "name like a formula",
       "A spreadsheet takes a name that begins with =, +, - or @ for a formula. It writes the result, or an "
       "error, in place of the name.",
       "Rename the variable, or edit the file with a text editor only.", "Speed,INT,,,,,,0,1,0,0,\n",
       "=A1+B1,INT,,,,,,0,1,0,0,\n"});
  rules->push_back({"T077", Severity::kError, "second list of subscripts",
                    "The driver joins a name at the commas of its first brackets only. Behind brackets that are "
                    "closed, a comma begins the next column.",
                    "Declare the array by its name without the last subscripts: Line[1].Pos with the ranges "
                    "[0..2_0..3] in column 3.",
                    "Line[1,2].Pos[3],INT,,,,,,0,1,0,0,\n", "Line[1].Pos[2,3],INT,,,,,,0,1,0,0,\n"});
}

void add_limit_rules(std::vector<Rule>* rules) {
  rules->push_back({"T080", Severity::kInfo, "unknown device", "The driver knows EM, MR, LR, DM, TM, FM, CM and ZF.",
                    "Correct the device if the variable is a BOOL: it decides how the driver finds the bit.",
                    "Lamp,BOOL,,,,,,0,1,0,0,,MR0\n", "Lamp,BOOL,,,,,,0,1,0,0,,XY0\n"});
  rules->push_back({"T081", Severity::kWarning, "device of two characters before a comma",
                    "A device column needs three characters, the line feed included.",
                    "Write the device with its number, or end the line after it.", "Lamp,BOOL,,,,,,0,1,0,0,,MR0\n",
                    "Lamp,BOOL,,,,,,0,1,0,0,,MR,\n"});
  rules->push_back({"T090", Severity::kInfo, "more than 64 BOOLs", "A read of more than 64 BOOLs fails.",
                    "Read the array in parts.", "Bits,BOOL,[0..63],,,,,0,1,0,0,\n",
                    "Bits,BOOL,[0..99],,,,,0,1,0,0,\n"});
  rules->push_back({"T091", Severity::kWarning, "8-bit type",
                    "Reads of SINT, USINT and BYTE fail, and writes treat them as bits.", "Declare a 16-bit variable.",
                    "Speed,INT,,,,,,0,1,0,0,\n", "Small,SINT,,,,,,0,1,0,0,\n"});
  rules->push_back({"T092", Severity::kInfo, "array too long for one read",
                    "The names of all its elements do not fit one request of 4096 bytes.", "Read the array in parts.",
                    "Table,INT,[0..9],,,,,0,1,0,0,\n", "Table,INT,[0..999],,,,,0,1,0,0,\n"});
  rules->push_back({"T093", Severity::kInfo, "array whose batch leaves elements unread",
                    "The driver divides a batch into equal shares and does not read the remainder.",
                    "Batch an even number of up to 69 elements, or a multiple of three up to 100.",
                    "Table,INT,[0..9],,,,,0,1,0,0,\n", "Table,INT,[0..50],,,,,0,1,0,0,\n"});
  rules->push_back({"T094", Severity::kWarning, "type without a width",
                    "The driver stores such a value up to its first zero byte. What follows is not known.",
                    "Declare the variable by a type with a width where one fits.", "Speed,INT,,,,,,0,1,0,0,\n",
                    "Day,DATE,,,,,,0,1,0,0,\n"});
}

void add_run_rules(std::vector<Rule>* rules) {
  rules->push_back({"T100", Severity::kInfo, "largest indexed id",
                    "Hosts cannot address the largest indexed id of a file.",
                    "End the ids with an unused line whose name begins with an underscore.",
                    "V262144,INT,,,,,,262144,1,0,0,\nV262145,INT,,,,,,262145,1,0,0,\n_end,INT,,,,,,262146,1,0,0,\n",
                    "V262144,INT,,,,,,262144,1,0,0,\nV262145,INT,,,,,,262145,1,0,0,\n"});
  rules->push_back(
      {"T101", Severity::kError, "run across a block of 8192 ids",
       "The driver looks up the ids after the block's end in another group.",
       "End the run at the last id of the block, one less than a multiple of 8192: 270335, 278527 and so on.",
       "V262144,INT,,,,,,262144,1,0,0,\nV262145,INT,,,,,,262145,1,0,0,\n_end,INT,,,,,,262146,1,0,0,\n",
       "V270335,INT,,,,,,270335,1,0,0,\nV270336,INT,,,,,,270336,1,0,0,\n_end,INT,,,,,,270337,1,0,0,\n"});
  rules->push_back({"T102", Severity::kError, "two runs in a block of 8192 ids",
                    "Hosts can address only the last run that starts in a block.",
                    "Start each run in a block of its own.",
                    "V262144,INT,,,,,,262144,1,0,0,\nV262145,INT,,,,,,262145,1,0,0,\n_end,INT,,,,,,262146,1,0,0,\n",
                    "V262144,INT,,,,,,262144,1,0,0,\nV262145,INT,,,,,,262145,1,0,0,\nV262150,INT,,,,,,262150,1,0,0,\n_"
                    "end,INT,,,,,,262151,1,0,0,\n"});
  rules->push_back({"T103", Severity::kError, "run of one id",
                    "Only the first and the last run of a file may have one id. Otherwise the driver rejects the file.",
                    "Add a second id to the run.",
                    "V262144,INT,,,,,,262144,1,0,0,\nV262145,INT,,,,,,262145,1,0,0,\n_end,INT,,,,,,262146,1,0,0,\n",
                    "V262144,INT,,,,,,262144,1,0,0,\nV262145,INT,,,,,,262145,1,0,0,\nV270336,INT,,,,,,270336,1,0,0,"
                    "\nV278528,INT,,,,,,278528,1,0,0,\n_end,INT,,,,,,278529,1,0,0,\n"});
  rules->push_back({"T104", Severity::kError, "run of too many ids",
                    "The first run of a file has at most 100 ids, each later one at most 101. Otherwise the driver "
                    "rejects the file.",
                    "Split the run, each part in a block of its own.",
                    "V262144,INT,,,,,,262144,1,0,0,\nV262145,INT,,,,,,262145,1,0,0,\n_end,INT,,,,,,262146,1,0,0,\n",
                    long_run()});
}

void add_across_rules(std::vector<Rule>* rules) {
  rules->push_back({"T105", Severity::kError, "id after the last one",
                    "No host can ask for an id above 16777215. From 17039360 on the driver rejects the file.",
                    "Use ids from 262144 to 16777215.",
                    "V262144,INT,,,,,,262144,1,0,0,\nV262145,INT,,,,,,262145,1,0,0,\n_end,INT,,,,,,262146,1,0,0,\n",
                    "V17039360,INT,,,,,,17039360,1,0,0,\n_end,INT,,,,,,17039361,1,0,0,\n"});
  rules->push_back({"T106", Severity::kError, "more than 100 runs", "The driver rejects the file.",
                    "Use fewer and longer runs, or several areas.",
                    "V262144,INT,,,,,,262144,1,0,0,\nV262145,INT,,,,,,262145,1,0,0,\n_end,INT,,,,,,262146,1,0,0,\n",
                    many_runs()});
  rules->push_back({"T107", Severity::kError, "indexed id twice", "Hosts cannot address one of the two records.",
                    "Give each record an id of its own.",
                    "V262144,INT,,,,,,262144,1,0,0,\nV262145,INT,,,,,,262145,1,0,0,\n_end,INT,,,,,,262146,1,0,0,\n",
                    "V262144,INT,,,,,,262144,1,0,0,\nV262145,INT,,,,,,262145,1,0,0,\nV262145,INT,,,,,,262145,1,0,0,\n_"
                    "end,INT,,,,,,262146,1,0,0,\n"});
  rules->push_back({"T108", Severity::kWarning, "falling indexed ids",
                    "The driver makes groups in the file's order. Runs are easier to read when ids rise.",
                    "Sort the lines by id.",
                    "V262144,INT,,,,,,262144,1,0,0,\nV262145,INT,,,,,,262145,1,0,0,\n_end,INT,,,,,,262146,1,0,0,\n",
                    "_end,INT,,,,,,270337,1,0,0,\nV262144,INT,,,,,,262144,1,0,0,\nV262145,INT,,,,,,262145,1,0,0,\n"});
  rules->push_back({"T109", Severity::kWarning, "id twice",
                    "Hosts address plain variables by their place in the file, so only one of the lines has its id.",
                    "Remove a line that is there twice, or write the record number.",
                    "Speed,INT,,,,,,0,1,0,0,\nLamp,INT,,,,,,1,1,0,0,\n",
                    "Speed,INT,,,,,,0,1,0,0,\nLamp,INT,,,,,,0,1,0,0,\n"});
  rules->push_back({"T110", Severity::kWarning, "variable declared twice",
                    "Both records read and write the same variable.",
                    "Remove one of them, if no host uses a number after it.", "Speed,INT,,,,,,0,1,0,0,\n",
                    "Speed,INT,,,,,,0,1,0,0,\nSpeed,INT,,,,,,1,1,0,0,\n"});
  rules->push_back({"T111", Severity::kWarning, "program name that begins another",
                    "The driver compares the beginnings of program names. If the controller reports the shorter name "
                    "first, the driver looks there for variables of the longer one.",
                    "Rename one of the programs.", "Step,INT,,,,,,0,0,0,1,MAIN\n",
                    "Step,INT,,,,,,0,0,0,1,MAIN\nCount,INT,,,,,,1,0,0,2,MAIN2\n"});
}

}  // namespace

const std::vector<Rule>& rule_list() {
  static const std::vector<Rule> rules = [] {
    std::vector<Rule> made;
    add_file_rules(&made);
    add_name_rules(&made);
    add_range_rules(&made);
    add_type_rules(&made);
    add_string_rules(&made);
    add_id_rules(&made);
    add_scope_rules(&made);
    add_limit_rules(&made);
    add_run_rules(&made);
    add_across_rules(&made);
    return made;
  }();
  return rules;
}

const Rule& rule_of(const char* code) {
  const auto& rules = rule_list();
  const auto found =
      std::find_if(rules.begin(), rules.end(), [&](const Rule& rule) { return strcmp(rule.code, code) == 0; });
  if (found == rules.end()) abort();
  return *found;
}

const char* severity_name(Severity severity) {
  switch (severity) {
    case Severity::kError:
      return "error";
    case Severity::kWarning:
      return "warning";
    default:
      return "info";
  }
}

}  // namespace tag_check
