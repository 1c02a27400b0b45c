#include "ocr/worker/PlainPage.h"

#include <leptonica/allheaders.h>
#include <stdexcept>
#include <utility>

namespace kvx::ocr {

namespace {

constexpr int assumedDpi = 300;
constexpr int lowestDpi = 70;
constexpr int highestDpi = 1200;
constexpr l_uint32 paper = 255;

PixPtr owned(Pix *pix)
{
    if (!pix)
        throw std::runtime_error("the picture cannot be converted");
    return PixPtr(pix);
}

/// One bit a pixel, 1 is ink.
PixPtr inkOf(Pix *grey)
{
    Pix *ink = nullptr;
    pixOtsuAdaptiveThreshold(
        grey, pixGetWidth(grey), pixGetHeight(grey), 0, 0, 0.1f, nullptr, &ink);
    return owned(ink);
}

/// Runs of ink that join to something longer than any letter. A page a little askew breaks a rule
/// into runs that touch.
PixPtr longRuns(Pix *ink, int width, int height, int shortest)
{
    const PixPtr runs = owned(pixOpenBrick(nullptr, ink, width, height));
    return owned(pixSelectBySize(
        runs.get(), shortest, shortest, 8, L_SELECT_IF_EITHER, L_SELECT_IF_GTE, nullptr));
}

bool isEmpty(Pix *mask)
{
    l_int32 empty = 0;
    pixZero(mask, &empty);
    return empty != 0;
}

/// False: there is no such area.
bool lightenAreas(Pix *grey)
{
    Pix *found = nullptr;
    const PixPtr ink(pixAutoPhotoinvert(grey, 0, &found, nullptr));
    const PixPtr areas(found);
    if (!areas || isEmpty(areas.get()))
        return false;
    const PixPtr inverse = owned(pixInvert(nullptr, grey));
    return pixCombineMasked(grey, inverse.get(), areas.get()) == 0;
}

/// False: there are none.
bool removeRules(Pix *grey, int dpi)
{
    const int run = dpi / 6;
    const int shortest = dpi / 2;
    const int thickest = dpi / 25; // a millimetre
    const PixPtr ink = inkOf(grey);
    const PixPtr solid = owned(pixOpenBrick(nullptr, ink.get(), thickest, thickest));
    const PixPtr around = owned(pixDilateBrick(nullptr, solid.get(), thickest, thickest));
    const PixPtr thin = owned(pixSubtract(nullptr, ink.get(), around.get()));
    const PixPtr level = longRuns(thin.get(), run, 1, shortest);
    const PixPtr upright = longRuns(thin.get(), 1, run, shortest);
    const PixPtr rules = owned(pixOr(nullptr, level.get(), upright.get()));
    if (isEmpty(rules.get()))
        return false;
    const PixPtr mask = owned(pixDilateBrick(nullptr, rules.get(), 5, 5)); // with its soft edge
    return pixPaintThroughMask(grey, mask.get(), 0, 0, paper) == 0;
}

} // namespace

PixPtr plainPage(Pix *page)
{
    const int told = pixGetXRes(page);
    const bool credible = told >= lowestDpi && told <= highestDpi;
    PixPtr grey = owned(pixConvertTo8(page, 0));
    const bool lightened = lightenAreas(grey.get());
    const bool ruled = removeRules(grey.get(), credible ? told : assumedDpi);
    return lightened || ruled ? std::move(grey) : PixPtr(pixClone(page));
}

} // namespace kvx::ocr
