// Lists the names and sections that contain all words of the search field. search_data.js defines `entries`, a list of
// [name, place, address].
function find(text, limit) {
    const words = text.toLowerCase().split(/\s+/).filter(Boolean);
    const rank = ([name]) => words.length ? name.toLowerCase().indexOf(words[0]) : 0;
    return words.length === 0 ? [] : entries
        .filter(([name]) => words.every(word => name.toLowerCase().includes(word)))
        .sort((a, b) => rank(a) - rank(b) || a[0].length - b[0].length || a[0].localeCompare(b[0]))
        .slice(0, limit);
}

function showFound() {
    const list = document.getElementById("found");
    const text = document.getElementById("search").value;
    const items = find(text, 200).map(([name, place, address]) => {
        const item = document.createElement("li");
        const link = item.appendChild(document.createElement("a"));
        link.href = address;
        link.textContent = name;
        item.append(" ");
        item.appendChild(document.createElement("span")).textContent = place;
        return item;
    });
    if (items.length === 0) items.push(Object.assign(document.createElement("li"), { textContent: "nothing found" }));
    list.replaceChildren(...items);
    list.hidden = text.trim() === "";
}

addEventListener("DOMContentLoaded", () => {
    const field = document.getElementById("search");
    field.addEventListener("input", showFound);
    field.addEventListener("keydown", event => {
        const first = document.querySelector("#found a");
        if (event.key === "Escape") field.value = "";
        if (event.key === "Enter" && first) first.click();
        showFound();
    });
});
