{{#LETTERS}}{{NAME}}
{{STREET}}
{{POSTCODE}} {{CITY}}

Order {{NUMBER}} of {{DATE}}

Dear {{NAME}},

thank you for your order. It left our house today:

{{#ITEMS}}  {{COUNT}} x {{ITEM}}
{{/ITEMS}}
The total is {{TOTAL}} EUR.
{{#REGULAR}}As a regular customer you pay no postage.{{/REGULAR}}{{#POSTAGE}}Postage is included.{{/POSTAGE}}

Please keep this letter. If anything is missing or broken, write to
us within 14 days, and name order {{NUMBER}}.

We deliver to {{CITY}} on every working day.

Yours sincerely,

Hearth and Hook
Bryggen 7
Bergen

--
{{/LETTERS}}