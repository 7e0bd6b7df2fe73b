// Shows the step whose mark is under the pointer, has the keyboard's focus, or is the page's target. Without this
// script all steps stand in a list.
const marks = [...document.querySelectorAll("svg a")];
const show = (id) => {
  if (!document.getElementById(id)?.matches("#steps > li")) return;
  for (const step of document.querySelectorAll("#steps > li")) step.classList.toggle("shown", step.id === id);
  for (const mark of marks) mark.classList.toggle("shown", mark.getAttribute("href") === "#" + id);
};
document.documentElement.classList.add("js");
for (const mark of marks) {
  const id = mark.getAttribute("href").slice(1);
  mark.addEventListener("focus", () => show(id));
  mark.addEventListener("mouseenter", () => show(id));
  mark.addEventListener("click", (event) => { event.preventDefault(); show(id); });
}
addEventListener("hashchange", () => show(location.hash.slice(1)));
show(marks.length ? marks[0].getAttribute("href").slice(1) : "");
show(location.hash.slice(1));
