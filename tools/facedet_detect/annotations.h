/*
 * Readers of the face photo set's annotation files, kept apart from the tool
 * so that they can be fed arbitrary bytes.
 */
#ifndef FACEDET_TOOLS_ANNOTATIONS_H
#define FACEDET_TOOLS_ANNOTATIONS_H

#include <istream>
#include <map>
#include <string>
#include <vector>

#include "face_matching.h"

struct AnnotatedFace {
    EvalBox box;  // original pixels
    bool invalid;
};

// image name -> faces, in file order
using AnnotatedFaces = std::map<std::string, std::vector<AnnotatedFace>>;

// Lines 'image x y w h'; blank lines are skipped. The images go to order in
// the order they first appear. On a malformed line: false, and *error names
// the file (name) and the line.
bool read_annotations(std::istream &in, const std::string &name, AnnotatedFaces &faces,
                      std::vector<std::string> &order, std::string *error);

// Lines 'image x y w h blur expression illumination invalid ...': marks the
// annotated faces flagged invalid (one flag per identical box).
bool apply_attributes(std::istream &in, const std::string &name, AnnotatedFaces &faces, std::string *error);

#endif
