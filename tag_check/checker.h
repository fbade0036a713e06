// Checks a tag file: what the driver will understand, and what its writer probably meant.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "finding.h"
#include "form/file_form.h"
#include "source_line.h"

namespace tag_check {

// The findings of a file's text, by line and column. file_name is looked at for its form only.
std::vector<Finding> check_text(const std::string& file_name, std::string_view text, const CheckOptions& options);

// What the driver's own loader makes of the file. It prints to standard output while it loads.
Understanding load_file(const std::string& path);

// The text with every safe edit made, in the form that the driver wants; how many corrections were made.
std::string apply_edits(std::string_view text, const std::vector<Finding>& findings, size_t* made);

// The text corrected again and again until nothing is left that has a safe correction.
std::string corrected_text(const std::string& file_name, std::string_view text, const CheckOptions& options,
                           size_t* made);

// Collects findings; the checks below add to it.
using Findings = std::vector<Finding>;

void check_file_name(const std::string& file_name, const CheckOptions& options, Findings* findings);
void check_pieces(const SourceFile& file, Findings* findings);
void check_line_ends(const FileForm& form, const SourceFile& file, Findings* findings);
// Finds out which lines are no records, which the checks below want to know.
void mark_kinds(const FileForm& form, SourceFile* file);
// Whether a line's columns are where they belong.
Shift shift_of(const SourceLine& line);
void check_shifts(const SourceFile& file, Findings* findings);
void check_numbers(const SourceFile& file, Findings* findings);
// The line's name without the blanks around it and its subscripts.
std::string meant_name(const SourceLine& line);
void check_name(const SourceLine& line, Findings* findings);
void check_type(const SourceLine& line, Findings* findings);
void check_ranges(const SourceLine& line, Findings* findings);
void check_string_length(const SourceLine& line, Findings* findings);
void check_layout(const SourceLine& line, Findings* findings);
void check_scope(const SourceLine& line, Findings* findings);
void check_device(const SourceLine& line, Findings* findings);
void check_limits(const SourceLine& line, Findings* findings);
void check_runs(const SourceFile& file, Findings* findings);
void check_across(const SourceFile& file, Findings* findings);

// Adds a finding at a column, or at the line's beginning when the column is missing.
Finding& add_finding(const char* rule, const SourceLine& line, const Column& column, std::string message,
                     Findings* findings);

// Elements of the declared array, 2^32 where there are more, 1 for anything else; 0 for a range without elements.
int64_t element_count(const TagEntry& entry);

// The whole text as a decimal; false when it is anything else.
bool parse_number(std::string_view text, int64_t* number);

}  // namespace tag_check
