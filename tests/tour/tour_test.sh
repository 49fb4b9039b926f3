#!/bin/bash
# Runs the tour on photographs, on every kind of picture that it reads and on bad files, and looks at what it leaves.
# Usage: tour_test.sh PHOTOS TOUR..., the program perhaps behind an `env` that sets its surroundings
set -u
photos=$1
shift
tour=("$@")
data=$(cd "$(dirname "$0")/data" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

[ -x "${tour[-1]}" ] || { echo "no program ${tour[-1]}"; exit 1; }

fail() {
  echo "FAILED: $*"
  failures=$((failures + 1))
}

# Runs the tour, keeps what it says, and expects an exit status.
expect_exit() {
  local wanted=$1
  shift
  "${tour[@]}" "$@" >"$work/stdout" 2>"$work/stderr"
  local got=$?
  if [ "$got" -ne "$wanted" ]; then
    fail "exit status $got instead of $wanted: $*"
    cat "$work/stdout" "$work/stderr"
    return 1
  fi
}

is_png() { [ "$(head -c 8 "$1" 2>/dev/null | od -An -tx1 | tr -d ' \n')" = 89504e470d0a1a0a ]; }

sources() { grep -o '<img[^>]* src="[^"]*"\|<img src="[^"]*"' "$1" | sed 's/.*src="//; s/"$//'; }

# Every picture that a page shows is there; there is at least the given number of them; nothing comes from elsewhere.
check_page() {
  local folder=$1 least=$2 count=0 source
  [ -s "$folder/index.html" ] || { fail "no page in $folder"; return; }
  while read -r source; do
    count=$((count + 1))
    is_png "$folder/$source" || fail "$source on the page is no PNG file"
  done < <(sources "$folder/index.html")
  [ "$count" -ge "$least" ] || fail "$count pictures on the page, fewer than $least"
  grep -q '</html>' "$folder/index.html" || fail "the page has no end"
  grep -Eqi '<script|https?://|//[a-z]+\.' "$folder/index.html" && fail "the page uses scripts or a network"
  [ "$(grep -o '<img ' "$folder/index.html" | wc -l)" -eq "$(grep -o '<img [^>]* alt="' "$folder/index.html" | wc -l)" ] ||
    fail "a picture without an alternative text"
}

# A bad file: exit status 1, its name and a reason in one line on stderr, and no page.
expect_refusal() {
  local file=$1 reason=$2
  rm -rf "$work/refused"
  expect_exit 1 --out "$work/refused" "$data/grey.png" "$file" || return
  grep -F -- "$(basename "$file")" "$work/stderr" | grep -q -- "$reason" ||
    fail "the message on $file: $(cat "$work/stderr")"
  [ -e "$work/refused" ] && fail "something was made in spite of $file"
  return 0
}

# The photographs: three thumbnails, and rooms of 129, 129 and 135 pictures.
expect_exit 0 --out "$work/photos" "$photos"/camera.png "$photos"/coins.png "$photos"/chelsea.png &&
  check_page "$work/photos" 393
for name in camera.png coins.png chelsea.png; do
  grep -q "^\[./3\] $name" "$work/stdout" || fail "no progress on $name"
done
grep -q "$work/photos/index.html" "$work/stdout" || fail "the tour does not say where the page is"
for call in qoriFilterSobelHorizBorder_8u16s_C1R qoriFilterSobelVertBorder_8u16s_C1R qoriFilterScharrHorizBorder_8u16s_C1R \
  qoriFilterLaplacianBorder_8u16s_C1R qoriFilterLowpassBorder_8u_C1R qoriFilterRowBorderPipeline_8u16s_C3R \
  qoriFilterColumnPipeline_16s8u_C3R qoriAbsDiff_8u_C1R qoriCanny_16s8u_C1R qoriMinMaxIndx_8u_C1R \
  qoriRectStdDev_32s32f_C1R qoriTiltedSqrIntegral_8u32s64f_C1R qoriAddWeighted_8u32f_C1IMR \
  qoriUpdateMotionHistory_8u32f_C1IR qoriMorphTophatBorder_8u_C1R qoriFilterMaxBorderReplicate_8u_C1R \
  qoriMorphReconstructErode_8u_C1IR qoriPyrDown_Gauss5x5_8u_C1R qoriPyramidLayerUp_8u_C1R qoriFilterGaussBorder_32f_C1R \
  qoriMinEigenVal_8u32f_C1R qoriEigenValsVecs_8u32f_C1R qoriOpticalFlowPyrLK_8u_C1R qoriUndistortRadial_8u_C1R \
  qoriCreateMapCameraUndistort_32f_C1R qoriSRHNCalcResidual_PSF3x3_8u32f_C1R qoriDistanceTransform_5x5_8u32f_C1R \
  qoriTrueDistanceTransform_8u32f_C1R qoriFastMarching_8u32f_C1R qoriInpaint_8u_C1R qoriInpaint_8u_C3R \
  qoriFloodFill_Range4Con_8u_C3IR qoriFloodFill_Grad8Con_8u_C3IR qoriLabelMarkers_8u_C1IR \
  qoriSegmentWatershed_8u16u_C1IR qoriBoundSegments_16u_C1IR qoriSegmentGradient_8u_C3IR qoriHoughLine_8u32f_C1R \
  qoriHoughLine_Region_8u32f_C1R qoribFastArctan_32f qoriGradientColorToGray_8u_C3C1R qoriSampleLine_8u_C1R \
  qoriFindPeaks3x3_32f_C1R qoriApplyHaarClassifier_32s32f_C1R qoriApplyMixedHaarClassifier_32s32f_C1R \
  qoriForegroundGaussian_8u_C1R qoriForegroundGaussian_8u_C3R qoriForegroundHistogram_8u_C3R \
  qoriForegroundHistogramUpdate_8u_C3R; do
  grep -q "$call(" "$work/photos/index.html" || fail "$call is not on the page"
done
# The table: the mean of the grey picture and of a channel are numbers.
[ "$(grep -c '<th scope="row">Mean</th><td>[0-9]' "$work/photos/index.html")" -eq 3 ] || fail "no table of statistics"
# Each result shows something: a picture of one grey level shrinks to next to nothing.
for file in "$work"/photos/*/*.png; do
  [ "$(stat -c %s "$file")" -gt 1500 ] || fail "$file is blank"
done

# Every kind of picture. The four that hold the same are seen the same, and grey pictures have no room for colour.
expect_exit 0 --out "$work/kinds" "$data"/grey.png "$data"/grey16.png "$data"/palette.png "$data"/transparent.png \
  "$data"/grey.jpg "$data"/colour.jpg "$data"/dot.png && check_page "$work/kinds" 901
for other in grey16 palette transparent; do
  cmp "$work/kinds/grey/before-grey.png" "$work/kinds/$other/before-grey.png" || fail "$other.png is not seen as grey.png"
done
[ -e "$work/kinds/colour/colour-sharpen-5.png" ] || fail "no colour in colour.jpg"
[ -e "$work/kinds/palette/colour-sharpen-5.png" ] && fail "colour in palette.png"
[ -e "$work/kinds/grey-2/canny-strict.png" ] || fail "two pictures of one name share a folder"

# What the tour writes it can read.
expect_exit 0 --out "$work/again" "$work/kinds/colour/colour-sharpen-5.png" "$work/kinds/grey/canny-eager.png" &&
  check_page "$work/again" 264

# Bad files.
printf 'not a picture\n' >"$work/notes.txt"
: >"$work/empty.png"
head -c 20000 "$photos/camera.png" >"$work/cut.png"
head -c -1 "$data/grey16.png" >"$work/nearly.png"
head -c 20 "$photos/camera.png" >"$work/stump.png"
head -c 400 "$data/colour.jpg" >"$work/cut.jpg"
head -c 3 "$data/colour.jpg" >"$work/stump.jpg"
printf '\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\1\x86\xa0\0\1\x86\xa0\x08\0\0\0\0\0\0\0\0' >"$work/huge.png"
expect_refusal "$work/missing.png" 'No such file'
expect_refusal "$work" 'directory'
expect_refusal "$work/notes.txt" 'neither a PNG nor a JPEG'
expect_refusal "$work/empty.png" 'empty'
expect_refusal "$work/cut.png" 'ends too early'
expect_refusal "$work/nearly.png" 'ends too early'
expect_refusal "$work/stump.png" 'ends too early'
expect_refusal "$work/cut.jpg" 'broken JPEG'
expect_refusal "$work/stump.jpg" 'broken JPEG'
expect_refusal "$work/huge.png" '100000x100000'
expect_refusal "$data/cmyk.jpg" 'broken JPEG'

# Usage.
expect_exit 0 --help && grep -q '^Usage' "$work/stdout" || fail "no help"
expect_exit 2 --nonsense
expect_exit 2 --out
expect_exit 1 --out /dev/null/tour "$data/grey.png" && grep -q '/dev/null/tour' "$work/stderr" || fail "no word on the folder"

[ "$failures" -eq 0 ] && echo "all as it should be"
exit $((failures > 0))
