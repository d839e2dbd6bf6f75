<html>
<head><title>{{TITLE}}</title></head>
<body>
<h1>{{TITLE}}</h1>
<ul>
{{#TEAMS}}<li{{#CHAMPION}} class="champion"{{/CHAMPION}}><b>{{NAME}}</b>: {{SCORE}}</li>
{{/TEAMS}}</ul>
<p>Two points for a win, one for a draw.</p>
</body>
</html>
