<table>
{{#ROWS}}<tr>{{#CELLS}}<td>{{CELL}}</td>{{/CELLS}}</tr>
{{/ROWS}}</table>
