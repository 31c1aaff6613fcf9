// Arguments of the functions of film, by their places.
#pragma once

namespace velloran {

namespace film_args {
enum FilmArg : int {
    image,
    films_fields_blur,  // negative, print, order of the fields, blur
    cc_gammas,          // red, green, blue, master
    neg_exposure,
    print_exposure,
    offset_scale,
    glow_brightness,
    glow_soft_focus,
    glow_width,
    grain_amp,
    midtones_mono,  // red, green, blue, mono
    grain_blur,
    grain_misc  // hold, seed, darks, brights
};
}  // namespace film_args

namespace grain_args {
enum GrainArg : int { image, grain_amp, midtones, darks_brights, grain_mono, grain_blur, grain_hold, seed };
}  // namespace grain_args

}  // namespace velloran
