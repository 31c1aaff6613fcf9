// Film stocks: the reader of their file, and the tables that params and the film look draw from. Host's thread.
#pragma once

#include "operators/film/film_curve.h"

namespace velloran {

constexpr int film_colors = 3;

enum FilmAxis : int { film_axis_log10, film_axis_stops, film_axis_linear };

// How a stock answers to light: density (the logarithm of what it holds back) over exposure, for each colour.
struct FilmType {
    char name[100];
    bool is_print;
    bool is_reversal;                          // a print stock that stands alone, with no negative before it
    float exposure_compensation[film_colors];  // factors
    float normal_gray_exposure;                // added to the place on the x axis
    float grain[film_colors];
    int x_type, y_type;            // FilmAxis; densities are the same for each y_type
    int point_count[film_colors];  // 0: no curve
    float x[film_colors][MAX_CURVE_POINTS], y[film_colors][MAX_CURVE_POINTS];

    bool has_curve(int color) const { return point_count[color] > 0; }
    bool has_curves() const { return has_curve(0) || has_curve(1) || has_curve(2); }
};

// Stocks by the number that popups have. 0 is the empty stock, which is always there.
struct FilmTable {
    FilmType* types;
    char** names;  // as people see them
    int count, room;
};
// Read from the configured file when they are first asked for, and kept until the last plug-in goes.
FilmTable& neg_film_types();
FilmTable& print_film_types();
void load_film_types();

// Adds the stocks of a file to two tables. What is wrong with a definition is told; the rest of it is passed over, and
// it keeps what it has.
void read_film_types(const char* path, FilmTable* negatives, FilmTable* prints);
// Empties a table but for the empty stock, which it gets if it has none.
void start_film_table(FilmTable* table, bool prints);
void free_film_table(FilmTable* table);

// The stock of that number; one that is not there counts as the empty one.
const FilmType& film_type(const FilmTable& table, int number);

}  // namespace velloran
