// Shows the steps whose marks are under the pointer, or the one that has the keyboard's focus or is the page's target.
// Without this script all steps stand in a list.
const marks = [...document.querySelectorAll("svg a")];
const idOf = (mark) => mark.getAttribute("href").slice(1);
const placeOf = (mark) => Number(mark.querySelector(".halo").getAttribute("x"));
const show = (ids) => {
  for (const step of document.querySelectorAll("#steps > li")) step.classList.toggle("shown", ids.includes(step.id));
  for (const mark of marks) mark.classList.toggle("shown", ids.includes(idOf(mark)));
};
const showTarget = () => {
  const id = location.hash.slice(1);
  if (document.getElementById(id)?.matches("#steps > li")) show([id]);
};
document.documentElement.classList.add("js");
for (const mark of marks) {
  // A mark may hide others, of the same moment: the pointer is on all of them.
  const together = marks.filter((other) => Math.abs(placeOf(other) - placeOf(mark)) < 6).map(idOf);
  mark.addEventListener("focus", () => show([idOf(mark)]));
  mark.addEventListener("mouseenter", () => show(together));
  mark.addEventListener("click", (event) => { event.preventDefault(); show(together); });
}
addEventListener("hashchange", showTarget);
show(marks.slice(0, 1).map(idOf));
showTarget();
