// The page's texts in the operator's language: English as it is written here, any other from the program's catalogue.
// Texts stand in double quotes within tr() or mark(), so that the catalogue's test and the server find them.

const kLanguages = ["en", "zh"];
const kNames = {en: "English", zh: "中文"};
const kStored = "language";

let language = "en";
let catalogue = {};

export function languages() {
  return kLanguages.map((id) => ({id, name: kNames[id]}));
}

export function currentLanguage() {
  return language;
}

// %s and %d take the values that follow, in their order; %% is a percent sign.
export function tr(english, ...values) {
  let next = 0;
  return (catalogue[english] ?? english).replace(/%(%|s|d)/g, (sign, kind) => (kind === "%" ? "%" : String(values[next++])));
}

// A text of a table, translated where it is shown.
export function mark(english) {
  return english;
}

export async function useLanguage(wanted) {
  const id = kLanguages.includes(wanted) ? wanted : "en";
  let texts = {};
  if (id !== "en") {
    const answer = await fetch("/console/texts/" + id + ".json");
    if (answer.ok) texts = await answer.json();
  }
  catalogue = texts;
  language = id;
  document.documentElement.lang = id === "zh" ? "zh-Hans" : id;
  localStorage.setItem(kStored, id);
}

export function preferredLanguage() {
  const stored = localStorage.getItem(kStored);
  if (stored) return stored;
  return navigator.languages.some((name) => name.toLowerCase().startsWith("zh")) ? "zh" : "en";
}
